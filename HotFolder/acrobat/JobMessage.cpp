#include "acrobat/JobMessage.h"

#include <array>
#include <cstdint>

namespace hf {

namespace {

constexpr BYTE kDictionary = '{';
constexpr BYTE kDictionaryEnd = '0';
constexpr BYTE kByteString = 's';
constexpr BYTE kUnicode = 'u';

constexpr std::array<char const*, 3> kKeys = {"input", "script", "output_folder"};

bool IsHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendCodePoint(std::string& out, char32_t code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

void AppendLength(std::vector<BYTE>& out, std::size_t length)
{
    auto const value = static_cast<std::uint32_t>(length);
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<BYTE>(value >> shift));
    }
}

void AppendItem(std::vector<BYTE>& out, std::string const& key, std::u16string const& value)
{
    out.push_back(kByteString);
    AppendLength(out, key.size());
    out.insert(out.end(), key.begin(), key.end());
    std::string const text = EncodeWideText(value);
    out.push_back(kUnicode);
    AppendLength(out, text.size());
    out.insert(out.end(), text.begin(), text.end());
}

// Reads the payload front to back; every read fails once the bytes run out.
class PayloadReader {
public:
    PayloadReader(BYTE const* data, std::size_t size) : data_(data), size_(size) {}

    bool AtEnd() const { return position_ == size_; }
    std::optional<BYTE> Byte()
    {
        if (position_ >= size_) {
            return std::nullopt;
        }
        return data_[position_++];
    }
    // A 4-byte length, then that many bytes.
    std::optional<std::string> Counted()
    {
        if (size_ - position_ < 4) {
            return std::nullopt;
        }
        std::uint32_t length = 0;
        for (int i = 0; i < 4; ++i) {
            length |= static_cast<std::uint32_t>(data_[position_ + i]) << (8 * i);
        }
        position_ += 4;
        if (size_ - position_ < length) {
            return std::nullopt;
        }
        std::string bytes(reinterpret_cast<char const*>(data_ + position_), length);
        position_ += length;
        return bytes;
    }

private:
    BYTE const* data_;
    std::size_t size_;
    std::size_t position_ = 0;
};

// The code point of the sequence at bytes[i], moving i past it; nothing when
// the bytes there are not a shortest-form sequence.
std::optional<char32_t> SequenceValue(std::string const& bytes, std::size_t& i)
{
    auto const lead = static_cast<unsigned char>(bytes[i]);
    int count = 0;
    char32_t code = 0;
    char32_t minimum = 0;
    if (lead < 0x80) {
        ++i;
        return lead;
    } else if ((lead & 0xE0) == 0xC0) {
        count = 1;
        code = lead & 0x1F;
        minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        count = 2;
        code = lead & 0x0F;
        minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        count = 3;
        code = lead & 0x07;
        minimum = 0x10000;
    } else {
        return std::nullopt;
    }
    if (bytes.size() - i - 1 < static_cast<std::size_t>(count)) {
        return std::nullopt;
    }
    for (int k = 1; k <= count; ++k) {
        auto const next = static_cast<unsigned char>(bytes[i + static_cast<std::size_t>(k)]);
        if ((next & 0xC0) != 0x80) {
            return std::nullopt;
        }
        code = (code << 6) | (next & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF) {
        return std::nullopt;
    }
    i += static_cast<std::size_t>(count) + 1;
    return code;
}

}  // namespace

std::string EncodeWideText(std::u16string const& text)
{
    std::string out;
    out.reserve(text.size() * 3);
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t const unit = text[i];
        if (IsHighSurrogate(unit) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            char32_t const low = text[++i];
            AppendCodePoint(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        } else {
            // Everything else, a surrogate without its partner included, is one code point.
            AppendCodePoint(out, unit);
        }
    }
    return out;
}

std::optional<std::u16string> DecodeWideText(std::string const& bytes)
{
    std::u16string text;
    std::size_t i = 0;
    while (i < bytes.size()) {
        std::optional<char32_t> const code = SequenceValue(bytes, i);
        if (!code) {
            return std::nullopt;
        }
        if (*code >= 0x10000) {
            char32_t const offset = *code - 0x10000;
            text += static_cast<char16_t>(0xD800 + (offset >> 10));
            text += static_cast<char16_t>(0xDC00 + (offset & 0x3FF));
        } else {
            text += static_cast<char16_t>(*code);
        }
    }
    return text;
}

std::vector<BYTE> EncodeJobMessage(std::u16string const& input, std::u16string const& script,
                                   std::u16string const& outputFolder)
{
    std::vector<BYTE> payload;
    payload.push_back(kDictionary);
    AppendItem(payload, kKeys[0], input);
    AppendItem(payload, kKeys[1], script);
    AppendItem(payload, kKeys[2], outputFolder);
    payload.push_back(kDictionaryEnd);

    std::vector<BYTE> message;
    message.reserve(4 + payload.size());
    AppendLength(message, payload.size());
    message.insert(message.end(), payload.begin(), payload.end());
    return message;
}

std::optional<Job> DecodeJobPayload(BYTE const* payload, std::size_t size)
{
    PayloadReader reader(payload, size);
    if (reader.Byte() != kDictionary) {
        return std::nullopt;
    }
    std::array<std::optional<std::u16string>, 3> values;
    for (;;) {
        std::optional<BYTE> const type = reader.Byte();
        if (type == kDictionaryEnd) {
            break;
        }
        if (type != kByteString) {
            return std::nullopt;
        }
        std::optional<std::string> const key = reader.Counted();
        if (!key || reader.Byte() != kUnicode) {
            return std::nullopt;
        }
        std::optional<std::string> const bytes = reader.Counted();
        std::optional<std::u16string> text = bytes ? DecodeWideText(*bytes) : std::nullopt;
        if (!text) {
            return std::nullopt;
        }
        std::size_t slot = 0;
        while (slot < kKeys.size() && *key != kKeys[slot]) {
            ++slot;
        }
        if (slot == kKeys.size() || values[slot]) {
            return std::nullopt;
        }
        values[slot] = std::move(text);
    }
    if (!reader.AtEnd() || !values[0] || !values[1] || !values[2]) {
        return std::nullopt;
    }
    return Job{*values[0], *values[1], *values[2]};
}

void StartJobEncoder()
{
}

void StopJobEncoder()
{
}

}  // namespace hf
