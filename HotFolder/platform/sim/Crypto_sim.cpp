// The data protection API on the simulated machine. A blob names the account
// that sealed it and carries the secret scrambled, with a checksum over the
// account, the entropy and the secret: another account cannot open it
// (NTE_BAD_KEY_STATE) and a changed byte is found (ERROR_INVALID_DATA), as on
// Windows. The secret never appears in the blob as it was.
#include "platform/Constants.h"
#include "platform/Crypto.h"
#include "platform/Errors.h"
#include "platform/sim/SimMemory.h"
#include "platform/sim/SimWorld.h"

#include <cstring>
#include <optional>
#include <vector>

namespace hf::os {

namespace {

// The blob: this tag, the account and the description each ending in a NUL
// character, the checksum (4 bytes), then the scrambled secret.
constexpr char kTag[] = "SDPB";

std::vector<BYTE> Bytes(void const* data, std::size_t size)
{
    auto const* bytes = static_cast<BYTE const*>(data);
    return bytes ? std::vector<BYTE>(bytes, bytes + size) : std::vector<BYTE>();
}

std::vector<BYTE> Bytes(DATA_BLOB const* blob)
{
    return blob ? Bytes(blob->pbData, blob->cbData) : std::vector<BYTE>();
}

std::vector<BYTE> Bytes(std::u16string const& text)
{
    return Bytes(text.c_str(), (text.size() + 1) * sizeof(WCHAR));
}

std::uint32_t Fnv1a(std::vector<BYTE> const& bytes, std::uint32_t hash = 2166136261u)
{
    for (BYTE byte : bytes) {
        hash = (hash ^ byte) * 16777619u;
    }
    return hash;
}

std::vector<BYTE> Checksum(std::u16string const& account, DATA_BLOB const* entropy, std::vector<BYTE> const& secret)
{
    std::uint32_t const hash = Fnv1a(secret, Fnv1a(Bytes(entropy), Fnv1a(Bytes(account))));
    return Bytes(&hash, sizeof hash);
}

// Scrambles or unscrambles in place with a stream drawn from the account.
void Scramble(std::u16string const& account, std::vector<BYTE>& bytes)
{
    std::uint32_t state = Fnv1a(Bytes(account)) | 1u;
    for (BYTE& byte : bytes) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<BYTE>(byte ^ (state >> 16));
    }
}

// The NUL-terminated text at `at`, which moves past it; nothing when the blob ends first.
std::optional<std::u16string> TakeText(std::vector<BYTE> const& blob, std::size_t& at)
{
    std::u16string text;
    for (char16_t c = 1; c != 0; at += sizeof c) {
        if (blob.size() < at + sizeof c) {
            return std::nullopt;
        }
        std::memcpy(&c, blob.data() + at, sizeof c);
        text += c;
    }
    text.pop_back();
    return text;
}

BOOL Hand(std::vector<BYTE> const& bytes, DATA_BLOB* out)
{
    out->cbData = static_cast<DWORD>(bytes.size());
    out->pbData = static_cast<BYTE*>(sim::LocalAllocate(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), out->pbData);
    return TRUE;
}

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

}  // namespace

BOOL CryptProtectData(DATA_BLOB* dataIn, const WCHAR* description, DATA_BLOB* optionalEntropy, void* /*reserved*/,
                      void* /*promptStruct*/, DWORD /*flags*/, DATA_BLOB* dataOut)
{
    std::u16string const& account = sim::TheWorld().processes.current.userName;
    std::vector<BYTE> secret = Bytes(dataIn);
    std::vector<BYTE> blob(kTag, kTag + 4);
    for (auto const& part :
         {Bytes(account), Bytes(description ? description : u""), Checksum(account, optionalEntropy, secret)}) {
        blob.insert(blob.end(), part.begin(), part.end());
    }
    Scramble(account, secret);
    blob.insert(blob.end(), secret.begin(), secret.end());
    return Hand(blob, dataOut);
}

BOOL CryptUnprotectData(DATA_BLOB* dataIn, WCHAR** description, DATA_BLOB* optionalEntropy, void* /*reserved*/,
                        void* /*promptStruct*/, DWORD /*flags*/, DATA_BLOB* dataOut)
{
    std::vector<BYTE> const blob = Bytes(dataIn);
    std::size_t at = 4;
    auto const account =
        blob.size() >= at && std::memcmp(blob.data(), kTag, at) == 0 ? TakeText(blob, at) : std::nullopt;
    auto const sealedDescription = account ? TakeText(blob, at) : std::nullopt;
    if (!sealedDescription || blob.size() < at + 4) {
        return Fail(ERROR_INVALID_DATA);
    }
    if (*account != sim::TheWorld().processes.current.userName) {
        return Fail(NTE_BAD_KEY_STATE);
    }
    std::vector<BYTE> secret(blob.begin() + static_cast<std::ptrdiff_t>(at + 4), blob.end());
    Scramble(*account, secret);
    if (Checksum(*account, optionalEntropy, secret) !=
        std::vector<BYTE>(blob.begin() + static_cast<std::ptrdiff_t>(at),
                          blob.begin() + static_cast<std::ptrdiff_t>(at + 4))) {
        return Fail(ERROR_INVALID_DATA);
    }
    DATA_BLOB text;
    Hand(Bytes(*sealedDescription), &text);
    *description = reinterpret_cast<WCHAR*>(text.pbData);
    return Hand(secret, dataOut);
}

}  // namespace hf::os
