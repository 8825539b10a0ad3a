// The accounts of the simulated machine and their logon sessions: who can log
// on with which password, the roaming profile path the network API gives for
// an account, and the profiles loaded for logon tokens.
#pragma once

#include "platform/Types.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace hf::sim {

struct Account {
    std::u16string domain;
    std::u16string name;
    std::u16string password;     // compared exactly, as a counted text
    std::u16string profilePath;  // usri4_profile: "" when the account has no roaming profile
};

// One LoadUserProfileW, as it was asked for.
struct LoadedProfile {
    std::u16string userName;                    // lpUserName
    std::optional<std::u16string> profilePath;  // lpProfilePath; nothing when it was null
    bool unloaded = false;
};

class Accounts {
public:
    // Declares an account; domain and name match without regard to ASCII case.
    void Add(Account account) { accounts_.push_back(std::move(account)); }
    Account const* Find(std::u16string const& domain, std::u16string const& name) const;

    // Every profile loaded, in order.
    std::vector<LoadedProfile> profiles;
    // Called as a profile is unloaded, before the unload returns.
    std::function<void()> onUnload;

    void Clear()
    {
        accounts_.clear();
        profiles.clear();
        onUnload = nullptr;
    }

private:
    std::vector<Account> accounts_;
};

// Backend: the account (DOMAIN\name) that a logon token handle stands for;
// nothing when the handle is not a logon token.
std::optional<std::u16string> TokenAccount(HANDLE token);

}  // namespace hf::sim
