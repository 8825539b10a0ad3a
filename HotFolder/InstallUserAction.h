// -installuser: makes the watcher start at the user's every logon.
#pragma once

#include "EventReporter.h"

namespace hf {

inline constexpr char16_t kRunKeyPath[] = u"Software\\Microsoft\\Windows\\CurrentVersion\\Run";
inline constexpr char16_t kRunValueName[] = u"Tarnwick Hot Folder Watcher";

// Writes the Run value "<exe path in quotes> -currentuser" under the user's
// Run key, which must already exist. Failures are reported and never stop the
// watcher that runs next.
void WriteRunEntry(EventReporter& events);

}  // namespace hf
