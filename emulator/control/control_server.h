// The emulator's control port: an HTTP API on loopback (described by docs/openapi/emulator-control.json)
// to switch faults of both roads at run time, read and replace the state, and read the request
// journal, plus the console page that shows all three live. Off unless --control-port is given.
#ifndef VKS_CONTROL_SERVER_H
#define VKS_CONTROL_SERVER_H

#include <cstdint>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "fault_table.h"
#include "journal.h"

namespace control {

#define CONTROL_ROAD_ANALYSIS JOURNAL_ROAD_DXMP
#define CONTROL_ROAD_CMD JOURNAL_ROAD_CMD

struct ControlOptions {
    int port = -1;  // -1: no control port; 0: any free port
    size_t journalSize = 500;
    std::string webRoot;  // docs/openapi and web/console are read from here
    std::string dbPath;
    std::vector<std::string> allowHosts;  // names beside the loopback ones a request may give in Host
};

struct ControlTargets {
    std::shared_ptr<faults::FaultTable> analysisFaults;
    std::shared_ptr<faults::FaultTable> cmdFaults;
    std::shared_ptr<Journal> journal;
    // Counted up after every change made to the state here: others that keep some of it in memory
    // (the command channel's settings) know to read it again. May be null.
    std::shared_ptr<std::atomic<uint64_t>> stateChanges;
};

class ControlServer {
public:
    // Opens the state file, binds 127.0.0.1:port and serves on its own thread; null with *error.
    static std::unique_ptr<ControlServer> Start(const ControlOptions& options, const ControlTargets& targets,
                                                std::string* error);
    ~ControlServer();  // stops serving
    uint16_t Port() const;

    struct Impl;

private:
    explicit ControlServer(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace control

#endif
