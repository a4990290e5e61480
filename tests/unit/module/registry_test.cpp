// Module start-up: exported names, the registered service path and the registry's behaviour.
#include <dlfcn.h>
#include <link.h>

#include <fstream>
#include <iterator>
#include <map>
#include <regex>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "service_registry/service_interface.h"

namespace {

const char* const kExportedNames[] = {
    "RunGetMultiTaskAppTaskModesAvailableList",
    "FormatGetMultiTaskAppTaskModesAvailableList",
    "RunGetMultiTaskAppTaskModesCapacity",
    "FormatGetMultiTaskAppTaskModesCapacity",
    "RunGetMultiTaskAppTaskModesEnableList",
    "RecvGetMultiTaskAppTaskModesEnableList",
    "FormatGetMultiTaskAppTaskModesEnableList",
    "RunGetMultiTaskAppDisplayRecogPopUps",
    "FormatGetMultiTaskAppDisplayRecogPopUps",
    "ParsePutMultiTaskAppDisplayRecogPopUps",
    "RunPutMultiTaskAppDisplayRecogPopUps",
    "FormatPutMultiTaskAppDisplayRecogPopUps",
    "RunGetMultiTaskAppDisplayRecogInfos",
    "FormatGetMultiTaskAppDisplayRecogInfos",
    "PreProcPutMultiTaskAppDisplayRecogInfos",
    "ParsePutMultiTaskAppDisplayRecogInfos",
    "RunPutMultiTaskAppDisplayRecogInfos",
    "FormatPutMultiTaskAppDisplayRecogInfos",
    "RunGetMultiTaskAppHistory",
    "FormatGetMultiTaskAppHistory",
    "PreProcPutMultiTaskAppHistory",
    "ParsePutMultiTaskAppHistory",
    "RunPutMultiTaskAppHistory",
    "FormatPutMultiTaskAppHistory",
    "RunGetMultiTaskAppHistoryRecords",
    "FormatGetMultiTaskAppHistoryRecords",
    "ParseDeleteMultiTaskAppHistoryRecords",
    "RunDeleteMultiTaskAppHistoryRecords",
    "FormatDeleteMultiTaskAppHistoryRecords",
    // Besides the 29 handlers:
    "SyncBlockDXMPMsgInteraction",
    "SyncBlockDXMPMultiMsgInteraction",
    "AsyncBlockDXMPMsgInteraction",
    "AsyncBlockDXMPMultiMsgInteraction",
    "GetFileSize",
    "GetFileContent",
    "g_enITGTDebugFlag",
    "AsyncSendMsg_Get",
    "AsyncRecvMsg_Get",
    // C++ names: round-trip instances and the registry's instance.
    "_Z11ProcMsg_GetI17_FaceRecPopUpParaEiP22tagHTTP_CNTENT_INTER_Sthty",
    "_Z11ProcMsg_PutI17_FaceRecPopUpParaEiP22tagHTTP_CNTENT_INTER_Sthty",
    "_Z8ParseMsgI17_FaceRecPopUpParaEiP22tagHTTP_CNTENT_INTER_SP13tagHTTP_BUF_S",
    "_ZN9SingletonI16ServiceInterfaceE11GetInstanceEv",
    "_ZZN9SingletonI16ServiceInterfaceE11GetInstanceEvE10m_Instance",
    // Codec and envelope instances: a GET writer, the envelope's encoder, a settings decoder.
    "_Z20FormatCommonResponseI19_VW_AvailableList_SEiP16tagHTTP_HEADER_SiP22tagHTTP_CNTENT_INTER_SP13tagHTTP_"
    "BUF_S",
    "_Z11json_encodeI14ZKAPI_RESPONSEEPcRKT_",
    "_Z11ParseCommonI19HistoryRecordSwitchEiP16tagHTTP_HEADER_SP13tagHTTP_BUF_SP22tagHTTP_CNTENT_INTER_S",
    "_ZN11jsonDecoderI19HistoryRecordSwitch9NullAlloc11NullDeallocE6decodeEP11json_objectPvRS0_S1_S2_18JSON_"
    "FORMAT_TYPE_E",
};

class ModuleHandle {
public:
    ModuleHandle() : handle_(dlopen(VKS_MODULE_PATH, RTLD_NOW | RTLD_LOCAL)) {}
    ~ModuleHandle() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    void* get() const { return handle_; }

private:
    void* handle_;
};

TEST(ModuleLoad, DebugSwitchStartsAtZero) {
    ModuleHandle module;
    ASSERT_NE(module.get(), nullptr) << dlerror();
    const int* flag = static_cast<const int*>(dlsym(module.get(), "g_enITGTDebugFlag"));
    ASSERT_NE(flag, nullptr);
    EXPECT_EQ(*flag, 0);
}

// Defined symbols of the module's dynamic symbol table, read from the file, with their binding.
std::map<std::string, unsigned> DefinedDynamicSymbols(const char* path) {
    std::ifstream in(path, std::ios::binary);
    const std::string image((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::map<std::string, unsigned> symbols;
    const auto* ehdr = reinterpret_cast<const ElfW(Ehdr)*>(image.data());
    if (image.size() < sizeof(ElfW(Ehdr)) ||
        ehdr->e_shoff + ehdr->e_shnum * sizeof(ElfW(Shdr)) > image.size()) {
        return symbols;
    }
    const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(image.data() + ehdr->e_shoff);
    for (unsigned i = 0; i < ehdr->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_DYNSYM) {
            continue;
        }
        const char* names = image.data() + sections[sections[i].sh_link].sh_offset;
        const auto* sym = reinterpret_cast<const ElfW(Sym)*>(image.data() + sections[i].sh_offset);
        for (size_t k = 0; k < sections[i].sh_size / sizeof(ElfW(Sym)); ++k) {
            if (sym[k].st_shndx != SHN_UNDEF && sym[k].st_name != 0) {
                symbols[names + sym[k].st_name] = ELF32_ST_BIND(sym[k].st_info);
            }
        }
    }
    return symbols;
}

// The exact table: every bare name above, global; besides them only the template instances (weak)
// and the registry's class, singleton and instance (unique): internal helpers stay hidden.
TEST(ModuleLoad, DynamicSymbolTableHoldsExactlyTheExports) {
    const std::map<std::string, unsigned> symbols = DefinedDynamicSymbols(VKS_MODULE_PATH);
    ASSERT_FALSE(symbols.empty());
    size_t bare = 0;
    for (const char* name : kExportedNames) {
        ASSERT_EQ(symbols.count(name), 1u) << name;
        bare += std::string(name).compare(0, 2, "_Z") != 0 ? 1 : 0;
    }
    EXPECT_EQ(bare, 29u + 8u + 1u);
    // The class's type data is weak on x86-64, global on ARM (its ABI): either. Standard-library
    // instances of an unoptimised build, the sanitizer's markers and the coverage runtime's state
    // are not the module's own.
    const unsigned kEither = STB_NUM, kLibrary = STB_NUM + 1;
    const std::pair<const char*, unsigned> allowed[] = {
        {"^_Z(11ProcMsg_(Get|Put)|8ParseMsg|11json_encode|20FormatCommonResponse|11ParseCommon)I", STB_WEAK},
        {"^_ZZ?N11json(En|De)coderI", STB_WEAK},
        {"^_Z(N|T[IS])9SingletonI16ServiceInterfaceE", STB_WEAK},
        {"^_Z(Z|GVZ)N9SingletonI16ServiceInterfaceE", STB_GNU_UNIQUE},
        {"^_ZN16ServiceInterface", STB_GLOBAL},
        {"^_ZT[VIS]16ServiceInterface", kEither},
        {"^(_Z(Z?NK?St|St|NK?9__gnu_cxx)|__odr_asan\\.|__gcov_|mangle_path$)", kLibrary},
    };
    for (const auto& [name, binding] : symbols) {
        if (std::find(std::begin(kExportedNames), std::end(kExportedNames), name) !=
            std::end(kExportedNames)) {
            EXPECT_TRUE(name.compare(0, 2, "_Z") == 0 || binding == STB_GLOBAL) << name;
            continue;
        }
        auto rule = std::find_if(std::begin(allowed), std::end(allowed), [&name](const auto& a) {
            return std::regex_search(name, std::regex(a.first));
        });
        ASSERT_NE(rule, std::end(allowed)) << "exported but not in the table: " << name;
        const bool either = rule->second == kEither && (binding == STB_GLOBAL || binding == STB_WEAK);
        EXPECT_TRUE(binding == rule->second || either || rule->second == kLibrary) << name;
    }
}

TEST(ServiceRegistry, RegistrationReplacesThePath) {
    ServiceInterface& registry = ServiceInterface::GetInstance();
    const std::string original = registry.GetServicePath();
    const struct {
        const char* name;
        const char* path;
    } cases[] = {{"other.service", "/mnt/srvfs/other.service"}, {"", "/mnt/srvfs/"}};
    for (const auto& c : cases) {
        registry.RegistService(c.name);
        EXPECT_EQ(registry.GetServicePath(), c.path) << c.name;
    }
    registry.RegistService("itgt.paas.vks");
    EXPECT_EQ(registry.GetServicePath(), original);
}

// A type of its own so that its first GetInstance() happens inside the test.
struct Probe : Singleton<Probe> {
    static std::atomic<int> constructions;
    Probe() {
        ++constructions;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // widen the race window
    }
};
std::atomic<int> Probe::constructions{0};

TEST(ServiceRegistry, ConcurrentFirstCallsSeeOneInstance) {
    std::atomic<bool> go{false};
    std::vector<Probe*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&go, &seen, i] {
            while (!go.load()) {
            }
            seen[i] = &Probe::GetInstance();
        });
    }
    go = true;
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(Probe::constructions.load(), 1);
    for (Probe* p : seen) {
        EXPECT_EQ(p, seen[0]);
    }
}

}  // namespace
