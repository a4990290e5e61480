#include "srvfs_fixture.h"

#include <unistd.h>

#include "reply_frame.h"
#include "srvfs/file_system.h"
#include "test_env.h"

namespace vks_test {

// Records what a service file receives and answers as the test's script says.
class ScriptedService : public srvfs::Service {
public:
    explicit ScriptedService(ScriptFn fn) : fn_(std::move(fn)) {}

    void OnRequest(const srvfs::ReplyHandle& conn, std::vector<uint8_t> frame) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(frame);
        }
        ScriptedReply reply = fn_ ? fn_(frame) : ScriptedReply{{}, 0, true};
        if (!reply.never) {
            conn.ReplyAfter(std::move(reply.frame), reply.delayMs);
        }
    }

    void OnIoctl(const srvfs::ReplyHandle& /*conn*/, unsigned int cmd, unsigned long arg) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ioctls_.push_back(IoctlCall{cmd, arg});
    }

    std::vector<std::vector<uint8_t>> Requests() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }

    std::vector<IoctlCall> Ioctls() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return ioctls_;
    }

private:
    ScriptFn fn_;
    mutable std::mutex mutex_;
    std::vector<std::vector<uint8_t>> requests_;
    std::vector<IoctlCall> ioctls_;
};

std::unique_ptr<SrvfsMount> SrvfsMount::Create(std::string* why, bool ioUring) {
    // Never mount over the host's /mnt/srvfs: only inside the namespace the test main made.
    if (!InPrivateMountNamespace(why)) {
        return nullptr;
    }
    if (geteuid() != 0 || access("/dev/fuse", R_OK | W_OK) != 0) {
        *why = "mounting the service file system needs root and /dev/fuse";
        return nullptr;
    }
    std::unique_ptr<SrvfsMount> mount(new SrvfsMount());
    srvfs::MountOptions options;
    options.ioUring = ioUring;
    mount->fs_ = srvfs::FileSystem::Mount(options, why);
    if (mount->fs_ == nullptr) {
        return nullptr;
    }
    return mount;
}

SrvfsMount::~SrvfsMount() {
    if (fs_ != nullptr) {
        fs_->Unmount();
    }
}

void SrvfsMount::AddService(const std::string& name, ScriptFn fn) {
    auto service = std::make_shared<ScriptedService>(std::move(fn));
    {
        std::lock_guard<std::mutex> lock(mutex_);
        services_[name] = service;
    }
    fs_->AddService(name, service);
}

void SrvfsMount::RemoveService(const std::string& name) {
    fs_->RemoveService(name);
}

std::shared_ptr<ScriptedService> SrvfsMount::Find(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = services_.find(name);
    return found == services_.end() ? nullptr : found->second;
}

std::vector<std::vector<uint8_t>> SrvfsMount::Requests(const std::string& name) const {
    auto service = Find(name);
    return service == nullptr ? std::vector<std::vector<uint8_t>>{} : service->Requests();
}

std::vector<IoctlCall> SrvfsMount::Ioctls(const std::string& name) const {
    auto service = Find(name);
    return service == nullptr ? std::vector<IoctlCall>{} : service->Ioctls();
}

int SrvfsMount::OpenConnections(const std::string& name) const {
    return fs_->OpenConnections(name);
}

void SrvfsMount::SetTimeoutCapMs(unsigned long capMs) {
    fs_->SetTimeoutCapMs(capMs);
}

std::vector<uint8_t> BuildReply(uint16_t status, uint16_t uri, uint8_t method, const int32_t* result,
                                const std::vector<uint8_t>& content, uint16_t resultLen) {
    analysis::ReplySpec spec;
    spec.status = status;
    spec.uri = uri;
    spec.method = method;
    spec.result = result;
    spec.resultLen = resultLen;
    spec.content = content;
    return analysis::EncodeReply(spec);
}

void SrvfsTest::SetUp() {
    std::string why;
    mount_ = SrvfsMount::Create(&why);
    if (mount_ == nullptr) {
        FAIL() << "cannot mount the service file system: " << why;
    }
}

void SrvfsTest::TearDown() {
    mount_.reset();
}

SrvfsMount& SrvfsTest::srvfs() {
    return *mount_;
}

}  // namespace vks_test
