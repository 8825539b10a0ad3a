#include "service/OneShotSwitches.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "service/HotFolderModule.h"
#include "service/Registration.h"

#include <utility>

namespace hf {

namespace {

struct Keyword {
    std::u16string_view word;
    OneShotSwitch which;
};

constexpr Keyword kServerSwitches[] = {
    {u"UnregServer", OneShotSwitch::UnregServer},
    {u"RegServer", OneShotSwitch::RegServer},
    {u"UnregServerPerUser", OneShotSwitch::UnregServerPerUser},
    {u"RegServerPerUser", OneShotSwitch::RegServerPerUser},
};
constexpr Keyword kServiceSwitch[] = {{u"Service", OneShotSwitch::Service}};

bool EndsWord(std::u16string_view line, std::size_t at)
{
    return at == line.size() || line[at] == u' ' || line[at] == u'\t';
}

template <std::size_t N>
OneShotSwitch Find(std::u16string_view line, Keyword const (&keywords)[N])
{
    for (std::size_t at = line.find_first_of(u"-/"); at != std::u16string_view::npos;
         at = line.find_first_of(u"-/", at + 1)) {
        std::u16string_view const rest = line.substr(at + 1);
        for (auto const& keyword : keywords) {
            if (rest.size() >= keyword.word.size() &&
                EqualsIgnoringAsciiCase(rest.substr(0, keyword.word.size()), keyword.word) &&
                EndsWord(rest, keyword.word.size())) {
                return keyword.which;
            }
        }
    }
    return OneShotSwitch::None;
}

}  // namespace

OneShotSwitch FindOneShotSwitch(std::u16string_view commandLine)
{
    OneShotSwitch const server = Find(commandLine, kServerSwitches);
    return server != OneShotSwitch::None ? server : Find(commandLine, kServiceSwitch);
}

// Each step runs only when the one before it succeeded.
bool HandleOneShotSwitches(std::u16string const& commandLine, HRESULT& result)
{
    result = S_OK;
    OneShotSwitch const which = FindOneShotSwitch(commandLine);
    bool const perUser = which == OneShotSwitch::RegServerPerUser || which == OneShotSwitch::UnregServerPerUser;
    ServerRegistration registration(TheModule(), perUser);
    switch (which) {
        case OneShotSwitch::None:
            return false;
        case OneShotSwitch::RegServer:
        case OneShotSwitch::RegServerPerUser:
        case OneShotSwitch::Service:
            result = registration.RegisterAppId(which == OneShotSwitch::Service);
            if (result == S_OK) {
                result = registration.RegisterServer();
            }
            return true;
        case OneShotSwitch::UnregServer:
        case OneShotSwitch::UnregServerPerUser:
            result = registration.UnregisterServer();
            if (result == S_OK) {
                result = registration.UnregisterAppId();
            }
            return true;
    }
    return false;
}

}  // namespace hf
