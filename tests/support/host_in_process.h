// The access server for one request, in-process: the phase runner of host/ and the real
// module against a scripted analysis service (service file system) and command-channel peer.
#ifndef VKS_HOST_IN_PROCESS_H
#define VKS_HOST_IN_PROCESS_H

#include <string>

#include "cmd_test_util.h"
#include "module_table.h"
#include "phase_request.h"
#include "srvfs_fixture.h"

namespace vks_test {

// One request: resource, method, the URL's query ("" or "?..."), the body.
struct TestRequest {
    const char* resource;
    const char* method;
    const char* query;
    const char* body;
};

class HostInProcess : public SrvfsTest {
protected:
    void SetUp() override;
    void TearDown() override;
    // PreProc, Parse, Run, the awaited reply read as the event loop reads it, Recv, Format: the
    // effective result. The body stays in request_.body.text until the next request.
    int Serve(const TestRequest& request);

    // Up: the analysis service answers serviceResult_ and a record of the asked size whose bytes
    // count up from 1 (the enable list holds 2 tasks). Down: its file does not exist.
    void SetServiceUp(bool up);

    int serviceResult_ = 0;
    // The reply's shape: its status, its uri (0: the request's), the result item's length (0: none)
    // and the content's length against the record's size.
    uint16_t replyStatus_ = 200;
    uint16_t replyUri_ = 0;
    int resultLen_ = 4;
    int contentDelta_ = 0;
    int cmdResult_ = 0;  // the command channel's result; 0: GETs read a counting record
    // Set where the peers always succeed: a failed request must then have left runOut empty.
    bool checkNoRecordOnFailure_ = false;

    cmdtest::TempDir dir_;
    std::string sockPath_ = dir_.File("cmd.sock");
    std::string resultFile_ = dir_.File("records.json");
    cmdtest::ScriptedPeer peer_{sockPath_};
    tagUNIX_SOCKET_S* sock_ = nullptr;
    vks_host::ModuleTable module_{};
    vks_host::PhaseRequest request_{};
};

}  // namespace vks_test

#endif
