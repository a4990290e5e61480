// State of a mounted service file system, shared by the FUSE handlers, the timer and the reply
// handles that services keep. One mutex guards it all; FUSE replies are sent under it, which is safe
// because libfuse's reply path never takes a request's own lock (the interrupt path does, see Read).
#ifndef SRVFS_CORE_H
#define SRVFS_CORE_H

#include <fuse_lowlevel.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "frame_splitter.h"
#include "reply_timer.h"
#include "srvfs/service.h"

namespace srvfs {
namespace detail {

struct PendingRead {
    uint64_t id;
    fuse_req_t req;
    size_t size;
};

struct Connection {
    uint64_t id = 0;
    std::string serviceName;
    std::shared_ptr<Service> service;
    ConnSettings settings{};
    FrameSplitter input;
    std::vector<uint8_t> output;  // reply bytes not read yet, from outputPos on
    size_t outputPos = 0;
    size_t frameLeft = 0;  // bytes of the reply frame being read that no read has taken yet
    std::deque<PendingRead> reads;
    fuse_pollhandle* poll = nullptr;

    size_t Available() const { return output.size() - outputPos; }
};

struct ServiceEntry {
    fuse_ino_t ino;
    std::shared_ptr<Service> service;
};

class Core : public std::enable_shared_from_this<Core> {
public:
    explicit Core(unsigned long defaultTimeoutMs) : defaultTimeoutMs_(defaultTimeoutMs) {}

    // Registry of services.
    void AddService(const std::string& name, std::shared_ptr<Service> service);
    void RemoveService(const std::string& name);
    int OpenConnections(const std::string& name) const;
    bool FindService(const std::string& name, fuse_ino_t* ino) const;
    bool IsService(fuse_ino_t ino) const;
    std::vector<std::pair<std::string, fuse_ino_t>> Services() const;

    // Connection life: each returns 0 or a positive errno for the FUSE reply.
    int Open(fuse_ino_t ino, uint64_t* connId, std::shared_ptr<Service>* service);
    int Write(uint64_t connId, const uint8_t* data, size_t size, std::vector<std::vector<uint8_t>>* frames,
              std::shared_ptr<Service>* service);
    int Ioctl(uint64_t connId, unsigned int cmd, unsigned long arg, std::shared_ptr<Service>* service);
    unsigned Poll(uint64_t connId, fuse_pollhandle* ph);
    std::shared_ptr<Service> Release(uint64_t connId);
    // Answers req now when reply bytes are there, otherwise parks it until a reply, its time-out or
    // an interrupt.
    void Read(fuse_req_t req, uint64_t connId, size_t size, bool nonBlocking);

    bool Deliver(uint64_t connId, std::vector<uint8_t> frame);
    ReplyTimer& Timer() { return timer_; }
    void SetTimeoutCapMs(unsigned long capMs);
    // At shutdown: every parked read fails with err, poll handles are released, the timer stops.
    void Shutdown(int err);

private:
    static void OnInterrupt(fuse_req_t req, void* data);
    void Interrupt(fuse_req_t req);
    void Expire(uint64_t connId, uint64_t readId);
    bool AnswerLocked(Connection& conn, fuse_req_t req, size_t size);
    void ServeReadsLocked(Connection& conn);
    void ParkLocked(Connection& conn, fuse_req_t req, size_t size);
    Connection* FindLocked(uint64_t connId);
    unsigned long TimeoutLocked(const Connection& conn) const;

    mutable std::mutex mutex_;
    unsigned long defaultTimeoutMs_;
    unsigned long timeoutCapMs_ = 0;
    std::map<std::string, ServiceEntry> services_;
    std::map<uint64_t, std::shared_ptr<Connection>> connections_;
    std::map<fuse_req_t, uint64_t> parked_;  // parked read -> its connection
    fuse_ino_t nextIno_ = FUSE_ROOT_ID + 1;
    uint64_t nextConnId_ = 1;
    uint64_t nextReadId_ = 1;
    bool shutdown_ = false;
    ReplyTimer timer_;
};

}  // namespace detail
}  // namespace srvfs

#endif
