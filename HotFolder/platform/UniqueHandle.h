// One move-only owner per handle kind, closed on every path out of its scope.
// Closing keeps the caller's last-error value, so a failure path can close its
// handles first and still report the error of the call that failed.
#pragma once

#include "platform/Errors.h"
#include "platform/EventLog.h"
#include "platform/Files.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/ServiceManager.h"
#include "platform/Types.h"

#include <cstdint>
#include <utility>

namespace hf {

template <typename Traits>
class UniqueHandle {
public:
    using Type = typename Traits::Type;

    UniqueHandle() noexcept = default;
    explicit UniqueHandle(Type value) noexcept : value_(value) {}
    ~UniqueHandle() { reset(); }

    UniqueHandle(UniqueHandle&& other) noexcept : value_(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    Type get() const noexcept { return value_; }
    bool valid() const noexcept { return Traits::IsValid(value_); }
    explicit operator bool() const noexcept { return valid(); }

    // Gives up ownership; the caller now closes the handle (or deliberately never does).
    [[nodiscard]] Type release() noexcept { return std::exchange(value_, Traits::Invalid()); }

    void reset(Type value = Traits::Invalid()) noexcept
    {
        Type old = std::exchange(value_, value);
        if (Traits::IsValid(old)) {
            DWORD const savedError = os::GetLastError();
            Traits::Close(old);
            os::SetLastError(savedError);
        }
    }

    // For out-parameters of the platform calls: closes what is held, then lends the slot.
    Type* put() noexcept
    {
        reset();
        return &value_;
    }

private:
    Type value_ = Traits::Invalid();
};

// Kernel objects whose "none" is INVALID_HANDLE_VALUE (files, directories, pipes).
struct FileHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1)); }
    static bool IsValid(Type h) noexcept { return h != Invalid() && h != nullptr; }
    static void Close(Type h) noexcept { os::CloseHandle(h); }
};

// Kernel objects whose "none" is null (processes, threads, events, semaphores).
struct KernelHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type h) noexcept
    {
        return h != nullptr && h != reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
    }
    static void Close(Type h) noexcept { os::CloseHandle(h); }
};

struct RegistryKeyTraits {
    using Type = HKEY;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type h) noexcept { return h != nullptr; }
    static void Close(Type h) noexcept { os::RegCloseKey(h); }
};

struct ServiceHandleTraits {
    using Type = SC_HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type h) noexcept { return h != nullptr; }
    static void Close(Type h) noexcept { os::CloseServiceHandle(h); }
};

struct EventSourceTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type h) noexcept { return h != nullptr; }
    static void Close(Type h) noexcept { os::DeregisterEventSource(h); }
};

struct LocalMemoryTraits {
    using Type = HLOCAL;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type h) noexcept { return h != nullptr; }
    static void Close(Type h) noexcept { os::LocalFree(h); }
};

// Directory listings, closed by FindClose.
struct FindHandleTraits {
    using Type = HANDLE;
    static Type Invalid() noexcept { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1)); }
    static bool IsValid(Type h) noexcept { return h != Invalid() && h != nullptr; }
    static void Close(Type h) noexcept { os::FindClose(h); }
};

using UniqueFileHandle = UniqueHandle<FileHandleTraits>;
using UniqueKernelHandle = UniqueHandle<KernelHandleTraits>;
using UniqueRegistryKey = UniqueHandle<RegistryKeyTraits>;
using UniqueServiceHandle = UniqueHandle<ServiceHandleTraits>;
using UniqueEventSource = UniqueHandle<EventSourceTraits>;
using UniqueLocalMemory = UniqueHandle<LocalMemoryTraits>;
using UniqueFindHandle = UniqueHandle<FindHandleTraits>;

}  // namespace hf
