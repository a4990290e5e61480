// Module start-up: exported names, the registered service path and the registry's behaviour.
#include <dlfcn.h>

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
    // C++ names: the asynchronous pair, a round-trip instance and the registry's instance.
    "_Z16AsyncSendMsg_GetP16tagHTTP_CLIENT_SthRKSt6vectorI17DXMPMsgHeaderDataSaIS2_EE",
    "_Z16AsyncRecvMsg_GetP22tagHTTP_CNTENT_INTER_SP16tagHTTP_CLIENT_Sth",
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

TEST(ModuleLoad, ExportsEveryHandlerAndEntryPointUnderItsName) {
    ModuleHandle module;
    ASSERT_NE(module.get(), nullptr) << dlerror();
    for (const char* name : kExportedNames) {
        EXPECT_NE(dlsym(module.get(), name), nullptr) << name;
    }
}

TEST(ModuleLoad, KeepsInternalHelpersHidden) {
    ModuleHandle module;
    ASSERT_NE(module.get(), nullptr) << dlerror();
    // The connection set-up shared by both exchanges, and a round-trip helper instance.
    EXPECT_EQ(dlsym(module.get(), "_Z15DxmpOpenServicePKcb"), nullptr);
    EXPECT_EQ(dlsym(module.get(),
                    "_Z20DxmpStoreReplyRecordI17_FaceRecPopUpParaEiP12dxmp_messageP22tagHTTP_"
                    "CNTENT_INTER_SbPKc"),
              nullptr);
}

TEST(ModuleLoad, DebugSwitchStartsAtZero) {
    ModuleHandle module;
    ASSERT_NE(module.get(), nullptr) << dlerror();
    const int* flag = static_cast<const int*>(dlsym(module.get(), "g_enITGTDebugFlag"));
    ASSERT_NE(flag, nullptr);
    EXPECT_EQ(*flag, 0);
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
