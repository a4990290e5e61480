// The codec on its hot paths beside hand-written json-c code doing the same work: encoding the
// enable list of 32 tasks to text, and merging a 13-flag body into the display settings through
// ParseCommon. Google Benchmark times each side on its own (context); the ratios codec/baseline
// come from pairs of rounds run in turn (paired_rounds.h).
//   codec_bench [--pairs=N] [benchmark flags]   the table, then the paired ratios
//   codec_bench --calls=N                       each side N times, untimed, for valgrind --tool=callgrind
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <benchmark/benchmark.h>

#include <vector>

#include "codec_baseline.h"
#include "paired_rounds.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

using Filter = VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA;

const char kFilterBody[] =
    R"({"matchRate": 1, "snapTime": 0, "deviceName": 1, "faceLibName": 0, "name": 1, "cardId": 0,)"
    R"( "gender": 1, "province": 0, "city": 1, "cardType": 0, "birthday": 1, "blackMatchPic": 0,)"
    R"( "whiteMatchPic": 1})";

// Bodies on which both sides must give the same result and the same record, besides the timed
// one: the conversions, absent and null keys, and the texts the host's strict parser refuses.
const char* const kAgreementBodies[] = {kFilterBody,
                                        R"({"matchRate": 2.9, "name": -1.5, "city": 5e10})",
                                        R"({"gender": true, "city": null, "birthday": -1})",
                                        R"({"name": 1, "cardId": "1", "city": 1})",
                                        R"({"name": 1, "cardId": [1]})",
                                        R"({"name": 1} x)",
                                        R"({"name": 1,})",
                                        "[1]",
                                        "5",
                                        "null",
                                        ""};

_VW_TasksEnableList_S FullTaskList() {
    _VW_TasksEnableList_S list;
    memset(&list, 0, sizeof(list));
    list.taskNum = VW_MAX_TASK_NUM;
    for (uint64_t i = 0; i < VW_MAX_TASK_NUM; ++i) {
        int32_t on = static_cast<int32_t>(i % 2);
        list.taskEnable[i] = _VW_TaskEnable_S{100 + i, on, 1 - on, on, 1, 0, on, 1};
    }
    return list;
}

const _VW_TasksEnableList_S& TaskList() {
    static const _VW_TasksEnableList_S list = FullTaskList();
    return list;
}

// The codec's decode as the module's PUT handlers run it: 0, or -1 where ParseCommon refuses the body.
// ParseCommon only checks that the request header is there: one zeroed header serves every call,
// so that clearing its 1.2 KB is not counted as the codec's work.
int CodecDecode(const char* body, Filter* record) {
    static tagHTTP_HEADER_S header;
    tagHTTP_BUF_S content = {nullptr, body, nullptr};
    tagHTTP_CNTENT_INTER_S ctIn = {record, nullptr, nullptr};
    return ParseCommon<Filter>(&header, &content, &ctIn) == VW_SUCCESS ? 0 : -1;
}

// The four timed calls: each does its side's whole work and releases what it made.
void EncodeCodec() {
    char* text = json_encode(TaskList());
    benchmark::DoNotOptimize(text);
    free(text);
}

void EncodeBaseline() {
    char* text = BaselineEncodeTasks(TaskList());
    benchmark::DoNotOptimize(text);
    free(text);
}

void DecodeCodec() {
    Filter record;
    memset(&record, 0, sizeof(record));
    int ret = CodecDecode(kFilterBody, &record);
    benchmark::DoNotOptimize(ret);
    benchmark::DoNotOptimize(record);
}

void DecodeBaseline() {
    Filter record;
    memset(&record, 0, sizeof(record));
    int ret = BaselineDecodeFilter(kFilterBody, &record);
    benchmark::DoNotOptimize(ret);
    benchmark::DoNotOptimize(record);
}

const struct {
    const char* name;
    Call call;
} kSides[] = {{"Encode/Codec", EncodeCodec},
              {"Encode/Baseline", EncodeBaseline},
              {"Decode/Codec", DecodeCodec},
              {"Decode/Baseline", DecodeBaseline}};

bool EncodeAgrees() {
    char* codecText = json_encode(TaskList());
    char* baselineText = BaselineEncodeTasks(TaskList());
    bool same = codecText != nullptr && baselineText != nullptr && strcmp(codecText, baselineText) == 0;
    if (!same && codecText != nullptr && baselineText != nullptr) {
        size_t at = 0;
        while (codecText[at] != '\0' && codecText[at] == baselineText[at]) {
            ++at;
        }
        fprintf(stderr,
                "encode texts differ at byte %zu (codec %zu bytes, baseline %zu):\n  codec:    %.60s\n  "
                "baseline: %.60s\n",
                at, strlen(codecText), strlen(baselineText), codecText + at, baselineText + at);
    }
    free(codecText);
    free(baselineText);
    return same;
}

bool DecodeAgrees() {
    bool same = true;
    for (const char* body : kAgreementBodies) {
        Filter viaCodec;
        memset(&viaCodec, 0x5a, sizeof(viaCodec));  // flags a side leaves alone must stay as they were
        Filter viaBaseline = viaCodec;
        int codecRet = CodecDecode(body, &viaCodec);
        int baselineRet = BaselineDecodeFilter(body, &viaBaseline);
        if (codecRet != baselineRet || memcmp(&viaCodec, &viaBaseline, sizeof(Filter)) != 0) {
            fprintf(stderr, "decode of %s: codec %d, baseline %d%s\n", body, codecRet, baselineRet,
                    codecRet == baselineRet ? ", different records" : "");
            same = false;
        }
    }
    return same;
}

// Both sides must do the same work: byte for byte the same text for the list, the same result and
// record from every body. A difference is printed with where it is.
bool SidesAgree() {
    bool encodeAgrees = EncodeAgrees();
    bool decodeAgrees = DecodeAgrees();
    if (!encodeAgrees || !decodeAgrees) {
        fprintf(stderr,
                "codec_bench: FAILED, codec and baseline do not do the same work: encode %s, decode %s\n",
                encodeAgrees ? "same bytes" : "different bytes",
                decodeAgrees ? "same records" : "different records");
    }
    return encodeAgrees && decodeAgrees;
}

}  // namespace

int main(int argc, char** argv) {
    // Repetitions, interleaved at random, for the table; flags given on the command line come later
    // and win. --calls and --pairs are this program's own.
    std::vector<char*> args = {argv[0]};
    const char* defaults[] = {"--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
                              "--benchmark_report_aggregates_only=true"};
    for (const char* flag : defaults) {
        args.push_back(const_cast<char*>(flag));
    }
    long calls = 0;
    int pairs = 301;
    for (int i = 1; i < argc; ++i) {
        if (sscanf(argv[i], "--calls=%ld", &calls) != 1 && sscanf(argv[i], "--pairs=%d", &pairs) != 1) {
            args.push_back(argv[i]);
        }
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()) || !SidesAgree()) {
        return 1;
    }
    if (calls > 0) {
        for (const auto& side : kSides) {
            for (long i = 0; i < calls; ++i) {
                side.call();
            }
        }
        return 0;
    }
    for (const auto& side : kSides) {
        benchmark::RegisterBenchmark(side.name, [call = side.call](benchmark::State& state) {
            for (auto _ : state) {
                call();
            }
        });
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    PrintPairedRatio("Encode", EncodeCodec, EncodeBaseline, pairs);
    PrintPairedRatio("Decode", DecodeCodec, DecodeBaseline, pairs);
    return 0;
}
