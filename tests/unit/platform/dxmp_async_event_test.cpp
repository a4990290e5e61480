// The asynchronous-reply registry forwards to the hooks the host installed, and fails without them.
#include <gtest/gtest.h>

#include "dxmp_message.h"

namespace {

struct Recorder {
    int addResult = 0;
    int delResult = 0;
    int adds = 0;
    int dels = 0;
    tagHTTP_CLIENT_S* client = nullptr;
    int fd = -1;
    dxmp_message* request = nullptr;
};

int RecordAdd(void* ctx, tagHTTP_CLIENT_S* client, int fd, dxmp_message* request) {
    auto* r = static_cast<Recorder*>(ctx);
    ++r->adds;
    r->client = client;
    r->fd = fd;
    r->request = request;
    return r->addResult;
}

int RecordDel(void* ctx, tagHTTP_CLIENT_S* client, int fd) {
    auto* r = static_cast<Recorder*>(ctx);
    ++r->dels;
    r->client = client;
    r->fd = fd;
    return r->delResult;
}

class DxmpAsynEvent : public testing::Test {
protected:
    void TearDown() override { DxmpSetAsynEventHooks(nullptr, nullptr, nullptr); }
};

TEST_F(DxmpAsynEvent, WithoutHooksBothCallsFail) {
    tagHTTP_CLIENT_S client = {};
    EXPECT_EQ(-1, AddDxmpAsynEvent(&client, 5, nullptr));
    EXPECT_EQ(-1, DeleteDxmpAsynEvent(&client, 5));
}

TEST_F(DxmpAsynEvent, RemovedHooksAreNoLongerCalled) {
    Recorder recorder;
    DxmpSetAsynEventHooks(RecordAdd, RecordDel, &recorder);
    DxmpSetAsynEventHooks(nullptr, nullptr, nullptr);
    tagHTTP_CLIENT_S client = {};
    EXPECT_EQ(-1, AddDxmpAsynEvent(&client, 1, nullptr));
    EXPECT_EQ(-1, DeleteDxmpAsynEvent(&client, 1));
    EXPECT_EQ(0, recorder.adds + recorder.dels);
}

}  // namespace
