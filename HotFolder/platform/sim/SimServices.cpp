#include "platform/sim/SimServices.h"

#include "WideText.h"

namespace hf::sim {

Service& ServiceManager::Install(std::u16string const& name)
{
    Service& service = services_[AsciiUpper(name)];
    service.name = name;
    if (service.displayName.empty()) {
        service.displayName = name;
    }
    return service;
}

Service* ServiceManager::Find(std::u16string const& name)
{
    auto it = services_.find(AsciiUpper(name));
    return it == services_.end() ? nullptr : &it->second;
}

void ServiceManager::Remove(std::u16string const& name)
{
    services_.erase(AsciiUpper(name));
}

}  // namespace hf::sim
