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

constexpr BYTE kMagic[4] = {'S', 'D', 'P', 'B'};

std::uint32_t Fnv1a(std::uint32_t hash, BYTE const* bytes, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        hash = (hash ^ bytes[i]) * 16777619u;
    }
    return hash;
}

std::uint32_t Fnv1a(std::uint32_t hash, std::u16string const& text)
{
    return Fnv1a(hash, reinterpret_cast<BYTE const*>(text.data()), text.size() * sizeof(WCHAR));
}

std::vector<BYTE> Bytes(DATA_BLOB const* blob)
{
    if (blob == nullptr || blob->pbData == nullptr) {
        return {};
    }
    return std::vector<BYTE>(blob->pbData, blob->pbData + blob->cbData);
}

std::uint32_t Checksum(std::u16string const& account, std::vector<BYTE> const& entropy, std::vector<BYTE> const& secret)
{
    std::uint32_t hash = Fnv1a(2166136261u, account);
    hash = Fnv1a(hash, entropy.data(), entropy.size());
    return Fnv1a(hash, secret.data(), secret.size());
}

// Scrambles or unscrambles in place with a stream drawn from the account.
void Scramble(std::u16string const& account, std::vector<BYTE>& bytes)
{
    std::uint32_t state = Fnv1a(2166136261u, account) | 1u;
    for (BYTE& byte : bytes) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<BYTE>(byte ^ (state >> 16));
    }
}

void PutWord(std::vector<BYTE>& out, std::uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<BYTE>(value >> shift));
    }
}

void PutText(std::vector<BYTE>& out, std::u16string const& text)
{
    PutWord(out, static_cast<std::uint32_t>(text.size()));
    auto const* bytes = reinterpret_cast<BYTE const*>(text.data());
    out.insert(out.end(), bytes, bytes + text.size() * sizeof(WCHAR));
}

// Reads a sealed blob back; nothing when it is not laid out as one.
class BlobReader {
public:
    explicit BlobReader(std::vector<BYTE> bytes) : bytes_(std::move(bytes)) {}

    std::optional<std::uint32_t> Word()
    {
        if (bytes_.size() - at_ < 4) {
            return std::nullopt;
        }
        std::uint32_t value = 0;
        for (int i = 3; i >= 0; --i) {
            value = (value << 8) | bytes_[at_ + i];
        }
        at_ += 4;
        return value;
    }
    std::optional<std::u16string> Text()
    {
        auto const length = Word();
        if (!length || (bytes_.size() - at_) / sizeof(WCHAR) < *length) {
            return std::nullopt;
        }
        std::u16string text(*length, u'\0');
        std::memcpy(text.data(), bytes_.data() + at_, *length * sizeof(WCHAR));
        at_ += *length * sizeof(WCHAR);
        return text;
    }
    std::vector<BYTE> Rest()
    {
        return std::vector<BYTE>(bytes_.begin() + static_cast<std::ptrdiff_t>(at_), bytes_.end());
    }

private:
    std::vector<BYTE> bytes_;
    std::size_t at_ = 0;
};

BYTE* LocalCopy(std::vector<BYTE> const& bytes)
{
    auto* block = static_cast<BYTE*>(sim::LocalAllocate(bytes.size()));
    if (!bytes.empty()) {
        std::memcpy(block, bytes.data(), bytes.size());
    }
    return block;
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
    DWORD error = 0;
    if (sim::Injected("CryptProtectData", error)) {
        return FALSE;
    }
    if (dataIn == nullptr || dataOut == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    std::u16string const& account = sim::TheWorld().processes.current.userName;
    std::vector<BYTE> secret = Bytes(dataIn);
    std::vector<BYTE> blob(std::begin(kMagic), std::end(kMagic));
    PutText(blob, account);
    PutText(blob, description ? description : u"");
    PutWord(blob, Checksum(account, Bytes(optionalEntropy), secret));
    Scramble(account, secret);
    blob.insert(blob.end(), secret.begin(), secret.end());
    dataOut->cbData = static_cast<DWORD>(blob.size());
    dataOut->pbData = LocalCopy(blob);
    return TRUE;
}

BOOL CryptUnprotectData(DATA_BLOB* dataIn, WCHAR** description, DATA_BLOB* optionalEntropy, void* /*reserved*/,
                        void* /*promptStruct*/, DWORD /*flags*/, DATA_BLOB* dataOut)
{
    DWORD error = 0;
    if (sim::Injected("CryptUnprotectData", error)) {
        return FALSE;
    }
    if (dataIn == nullptr || dataOut == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    std::vector<BYTE> const bytes = Bytes(dataIn);
    if (bytes.size() < sizeof kMagic || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) {
        return Fail(ERROR_INVALID_DATA);
    }
    BlobReader reader(std::vector<BYTE>(bytes.begin() + sizeof kMagic, bytes.end()));
    auto const account = reader.Text();
    auto const sealedDescription = reader.Text();
    auto const checksum = reader.Word();
    if (!account || !sealedDescription || !checksum) {
        return Fail(ERROR_INVALID_DATA);
    }
    if (*account != sim::TheWorld().processes.current.userName) {
        return Fail(NTE_BAD_KEY_STATE);
    }
    std::vector<BYTE> secret = reader.Rest();
    Scramble(*account, secret);
    if (Checksum(*account, Bytes(optionalEntropy), secret) != *checksum) {
        return Fail(ERROR_INVALID_DATA);
    }
    if (description != nullptr) {
        std::u16string const text = *sealedDescription + u'\0';
        *description = reinterpret_cast<WCHAR*>(LocalCopy(std::vector<BYTE>(
            reinterpret_cast<BYTE const*>(text.data()), reinterpret_cast<BYTE const*>(text.data() + text.size()))));
    }
    dataOut->cbData = static_cast<DWORD>(secret.size());
    dataOut->pbData = LocalCopy(secret);
    return TRUE;
}

}  // namespace hf::os
