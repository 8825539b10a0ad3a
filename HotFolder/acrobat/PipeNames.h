// The names of the per-user pipes: \\.\pipe\ + a prefix + the user's
// DOMAIN\user name with every backslash turned into an underscore. The
// watcher, the service and the Acrobat plug-in each form them by this rule, so
// they meet on the same pipe.
#pragma once

#include <string>

namespace hf {

// The prefix of the Acrobat plug-in's pipe.
inline constexpr char16_t kPlugInPipePrefix[] = u"Tarnwick_PlugIn_";

// The calling user's name as DOMAIN\user; empty when it cannot be had.
std::u16string GetCurrentUserName();

// \\.\pipe\<prefix><user>, with the user's backslashes made underscores.
std::u16string MakePipeName(std::u16string const& prefix, std::u16string const& userName);

}  // namespace hf
