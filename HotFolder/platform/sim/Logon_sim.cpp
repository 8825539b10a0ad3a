// Logons, profiles and account records on the simulated machine.
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Logon.h"
#include "platform/sim/SimAccounts.h"
#include "platform/sim/SimMemory.h"
#include "platform/sim/SimWorld.h"

#include <cstring>

namespace hf::sim {

namespace {

class LogonToken : public Object {
public:
    explicit LogonToken(std::u16string account) : account(std::move(account)) {}
    std::u16string account;
};

class LoadedProfileObject : public Object {
public:
    explicit LoadedProfileObject(std::size_t index) : index(index) {}
    std::size_t index;
};

}  // namespace

Account const* Accounts::Find(std::u16string const& domain, std::u16string const& name) const
{
    for (Account const& account : accounts_) {
        if (EqualsIgnoringAsciiCase(account.domain, domain) && EqualsIgnoringAsciiCase(account.name, name)) {
            return &account;
        }
    }
    return nullptr;
}

std::optional<std::u16string> TokenAccount(HANDLE token)
{
    auto logon = TheWorld().LookupAs<LogonToken>(token);
    return logon ? std::optional(logon->account) : std::nullopt;
}

}  // namespace hf::sim

namespace hf::os {

namespace {

std::u16string Text(const WCHAR* text)
{
    return text ? std::u16string(text) : std::u16string();
}

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

}  // namespace

BOOL LogonUserW(const WCHAR* userName, const WCHAR* domain, const WCHAR* password, DWORD /*logonType*/,
                DWORD /*logonProvider*/, HANDLE* token)
{
    if (DWORD error = 0; sim::Injected("LogonUserW", error)) {
        return FALSE;
    }
    auto& world = sim::TheWorld();
    sim::Account const* account = world.accounts.Find(Text(domain), Text(userName));
    if (account == nullptr || account->password != Text(password)) {
        return Fail(ERROR_LOGON_FAILURE);
    }
    *token = world.AddHandle(std::make_shared<sim::LogonToken>(account->domain + u"\\" + account->name));
    return TRUE;
}

BOOL LoadUserProfileW(HANDLE token, PROFILEINFOW* profileInfo)
{
    if (DWORD error = 0; sim::Injected("LoadUserProfileW", error)) {
        return FALSE;
    }
    if (!sim::TokenAccount(token)) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    if (profileInfo == nullptr || profileInfo->dwSize != sizeof(PROFILEINFOW) || profileInfo->lpUserName == nullptr ||
        *profileInfo->lpUserName == 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    auto& profiles = sim::TheWorld().accounts.profiles;
    auto const* path = profileInfo->lpProfilePath;
    profiles.push_back({profileInfo->lpUserName, path ? std::optional<std::u16string>(path) : std::nullopt, false});
    profileInfo->hProfile = sim::TheWorld().AddHandle(std::make_shared<sim::LoadedProfileObject>(profiles.size() - 1));
    return TRUE;
}

BOOL UnloadUserProfile(HANDLE token, HANDLE profile)
{
    auto& world = sim::TheWorld();
    auto loaded = world.LookupAs<sim::LoadedProfileObject>(profile);
    if (!sim::TokenAccount(token) || !loaded) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    world.accounts.profiles[loaded->index].unloaded = true;
    if (world.accounts.onUnload) {
        world.accounts.onUnload();
    }
    world.CloseHandle(profile);
    return TRUE;
}

DWORD NetUserGetInfo(const WCHAR* serverName, const WCHAR* userName, DWORD /*level*/, BYTE** buffer)
{
    if (DWORD error = 0; sim::Injected("NetUserGetInfo", error)) {
        return error;
    }
    sim::Account const* account = sim::TheWorld().accounts.Find(Text(serverName), Text(userName));
    if (account == nullptr) {
        return NERR_UserNotFound;
    }
    // One block, as the network API gives it: the record, then its strings.
    std::size_t const nameBytes = (account->name.size() + 1) * sizeof(WCHAR);
    std::size_t const profileBytes = (account->profilePath.size() + 1) * sizeof(WCHAR);
    auto* block = static_cast<BYTE*>(sim::LocalAllocate(sizeof(USER_INFO_4) + nameBytes + profileBytes));
    auto* record = reinterpret_cast<USER_INFO_4*>(block);
    record->usri4_name = reinterpret_cast<WCHAR*>(block + sizeof(USER_INFO_4));
    std::memcpy(record->usri4_name, account->name.c_str(), nameBytes);
    record->usri4_profile = reinterpret_cast<WCHAR*>(block + sizeof(USER_INFO_4) + nameBytes);
    std::memcpy(record->usri4_profile, account->profilePath.c_str(), profileBytes);
    *buffer = block;
    return NERR_Success;
}

DWORD NetApiBufferFree(void* buffer)
{
    return sim::LocalRelease(buffer) ? NERR_Success : ERROR_INVALID_PARAMETER;
}

}  // namespace hf::os
