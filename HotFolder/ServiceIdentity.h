// The names and identifiers under which the system is known to Windows.
#pragma once

namespace hf {

// The service name, display name and event source name (string resource 100).
inline constexpr char16_t kServiceName[] = u"Tarnwick Hot Folders";
inline constexpr unsigned kServiceNameResourceId = 100;

inline constexpr char16_t kFolderServiceClsid[] = u"{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}";
inline constexpr char16_t kFolderServiceIid[] = u"{4D84CADB-50A1-44A9-8D74-E31D15EB6A8A}";
inline constexpr char16_t kHotFolderLibId[] = u"{524F5CA9-889F-479E-9DCC-E15F61C695AC}";
inline constexpr char16_t kAppId[] = u"{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}";

// The type library HotFolderLib: version 1.0, locale 0x409, built for 32-bit
// Windows (widl --win32), embedded as type library resource 1.
inline constexpr unsigned short kHotFolderLibMajor = 1;
inline constexpr unsigned short kHotFolderLibMinor = 0;
inline constexpr unsigned kHotFolderLibLocale = 0x409;

// The registration tables, REGISTRY resources of the executable.
inline constexpr unsigned kAppIdTableId = 101;
inline constexpr unsigned kClassTableId = 102;

}  // namespace hf
