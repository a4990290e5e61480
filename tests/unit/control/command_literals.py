"""The command numbers stay in the command table: the command channel's codes (read from the platform
header) may be written in at most two emulator files, and no command number of either road in a
console file. Usage: command_literals.py SOURCE_DIR"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
header = (root / "platform/include/unix_cmd_channel.h").read_text()
cmd_codes = set(re.findall(r"VW_CMD_\w+\s*=\s*(\d+)", header))
records = (root / "src/public/include/intelligent/comm/vks_multi_task_records.h").read_text()
analysis_codes = set(re.findall(r"#define VKS_URI_\w+\s+(\d+)", records))
assert len(cmd_codes) >= 4 and len(analysis_codes) >= 4, (cmd_codes, analysis_codes)


def files_naming(folder, codes):
    pattern = re.compile(r"\b(" + "|".join(sorted(codes)) + r")\b")
    return sorted(str(p.relative_to(root)) for p in (root / folder).rglob("*")
                  if p.is_file() and pattern.search(p.read_text(errors="replace")))


emulator = files_naming("emulator", cmd_codes)
console = files_naming("web/console", cmd_codes | analysis_codes)
print("emulator files naming a command-channel code:", emulator)
print("console files naming a command code:", console)
sys.exit(0 if len(emulator) <= 2 and not console else 1)
