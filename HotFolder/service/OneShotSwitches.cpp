#include "service/OneShotSwitches.h"

namespace hf {

// Registration is not built yet: no switch is recognised.
bool HandleOneShotSwitches(std::u16string const& /*commandLine*/, HRESULT& result)
{
    result = 0;
    return false;
}

}  // namespace hf
