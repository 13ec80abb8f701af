// The host string facility: scalar-text test and UTF-8 conversion of char arrays and string
// objects.
#include "platform/HostString.hpp"

#include "platform/HostError.hpp"

#include <cstdint>

namespace platform {

namespace {
constexpr std::string_view kStringComponent = "QUARTZ:string";

void appendCodePoint(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool isHighSurrogate(char16_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool isLowSurrogate(char16_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}
} // namespace

std::string utf16ToUtf8(std::u16string_view s) {
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char16_t c = s[i];
        if (isHighSurrogate(c) && i + 1 < s.size() && isLowSurrogate(s[i + 1])) {
            const std::uint32_t cp = 0x10000u + ((static_cast<std::uint32_t>(c) - 0xD800u) << 10) +
                                     (static_cast<std::uint32_t>(s[i + 1]) - 0xDC00u);
            appendCodePoint(out, cp);
            ++i;
        } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
            appendCodePoint(out, 0xFFFD);
        } else {
            appendCodePoint(out, c);
        }
    }
    return out;
}

bool isScalarText(const HostArray& a) noexcept {
    if (a.isChar()) {
        const Dims& d = a.dimensions();
        return d.size() == 2 && (d[0] == 1 || (d[0] == 0 && d[1] == 0));
    }
    if (a.isStringObject()) return a.numberOfElements() == 1;
    return false;
}

TextStatus scalarTextToUtf8(const HostArray& a, std::string& out) {
    if (!isScalarText(a)) return TextStatus::NotScalarText;
    if (a.isChar()) {
        out = utf16ToUtf8(a.charData());
        return TextStatus::Ok;
    }
    const std::optional<std::string>& s = a.stringAt(0);
    if (!s) return TextStatus::Missing;
    out = *s;
    return TextStatus::Ok;
}

std::string toUtf8(const HostArray& a) {
    std::string out;
    switch (scalarTextToUtf8(a, out)) {
    case TextStatus::Ok:
        break;
    case TextStatus::NotScalarText:
        HostError::raise(kStringComponent, "MustBeStringScalarOrCharacterVector");
    case TextStatus::Missing:
        HostError::raise(kStringComponent, "MissingNotSupported");
    }
    return out;
}

} // namespace platform
