// The registration tables of the executable, kept as REGISTRY resources in a
// small script language, and the engine that writes them into the registry
// and takes them out again.
//
//     HKCR
//     {
//         NoRemove AppID                        a key never deleted on unregistration
//         {
//             '%APPID%' = s 'TarnwickHotFolder' a key and its default value
//             'TarnwickHotFolder.EXE'
//             {
//                 val AppID = s '%APPID%'       a named value
//             }
//         }
//         ForceRemove Programmable              deleted with everything below it before it is
//     }                                         written again on registration
//
// A name holding braces, blanks or = is quoted.
//
// Names are bare words or quoted with ' (a doubled '' is one quote); values
// are strings (s). %NAME% is replaced by the replacement of that name, %% by %.
// Keys are relative to HKEY_CLASSES_ROOT, or to the root the caller gives
// (HKEY_CURRENT_USER\Software\Classes for a per-user registration).
#pragma once

#include "platform/Types.h"

#include <map>
#include <string>
#include <string_view>

namespace hf {

using RegistryReplacements = std::map<std::u16string, std::u16string>;

// Registration writes every key and value of the script under `root`;
// unregistration deletes them again, except keys marked NoRemove (only their
// named values go) and keys that still hold subkeys of others. S_OK, or the
// first failure as an HRESULT (E_FAIL for a script that does not parse).
HRESULT ApplyRegistryScript(std::u16string_view script, RegistryReplacements const& replacements, HKEY root,
                            bool registering);

// The text of the executable's REGISTRY resource `id` (ASCII).
HRESULT LoadRegistryScript(unsigned id, std::u16string& script);

}  // namespace hf
