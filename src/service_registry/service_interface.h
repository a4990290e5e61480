// Registry of the analysis service's endpoint on the service file system.
#ifndef VKS_SERVICE_INTERFACE_H
#define VKS_SERVICE_INTERFACE_H

#include <mutex>
#include <string>

#include "service_registry/singleton.h"

#define VKS_SERVICE_ROOT "/mnt/srvfs/"
#define VKS_SERVICE_NAME "itgt.paas.vks"

class __attribute__((visibility("default"))) ServiceInterface : public Singleton<ServiceInterface> {
public:
    virtual ~ServiceInterface();

    // Replaces the path with VKS_SERVICE_ROOT + name; the name is not checked (empty gives the root).
    void RegistService(const std::string& name);
    // A copy taken under the lock, so callers never read a string that a registration is replacing.
    std::string GetServicePath();

private:
    friend class Singleton<ServiceInterface>;
    ServiceInterface();

    std::string m_servicePath;
    std::mutex m_mutex;
};

// Registers a service name with the singleton when constructed (the module has one static instance).
class RegistService {
public:
    explicit RegistService(const std::string& name);
};

#endif
