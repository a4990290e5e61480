#include "service_registry/service_interface.h"

#include <utility>

ServiceInterface::ServiceInterface() : m_servicePath() {}

ServiceInterface::~ServiceInterface() = default;

void ServiceInterface::RegistService(const std::string& name) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string path;
    path.reserve(name.size() + sizeof(VKS_SERVICE_ROOT) - 1);
    path.append(VKS_SERVICE_ROOT);
    path.append(name);
    m_servicePath = std::move(path);
}

std::string ServiceInterface::GetServicePath() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_servicePath;
}

RegistService::RegistService(const std::string& name) {
    ServiceInterface::GetInstance().RegistService(name);
}
