#include "service/HotFolderModule.h"

#include "platform/Constants.h"

namespace hf {

CHotFolderModule::CHotFolderModule() = default;

// The service host is not built yet: the start fails as a process that the
// service control manager did not start would.
LONG CHotFolderModule::Start(int /*showWindow*/)
{
    return static_cast<LONG>(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
}

CHotFolderModule& TheModule()
{
    static CHotFolderModule module;
    return module;
}

}  // namespace hf
