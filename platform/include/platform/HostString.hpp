// The host string facility: the scalar-text test (a character row vector, a 0 x 0 character
// array, or a string object with exactly one element) and the conversion of host text to
// UTF-8. The throwing forms raise the "QUARTZ:string" host errors; the status form lets a
// caller report its own error instead.
#pragma once

#include "platform/HostArray.hpp"

#include <string>
#include <string_view>

namespace platform {

// A char array of one row (1 x n, n >= 0) or 0 x 0, or a string object with one element
// (a missing string counts: it is scalar text that cannot be converted).
bool isScalarText(const HostArray& a) noexcept;

enum class TextStatus {
    Ok,
    NotScalarText, // "QUARTZ:string:MustBeStringScalarOrCharacterVector"
    Missing,       // "QUARTZ:string:MissingNotSupported"
};

// Converts scalar text to UTF-8 into `out` (left unchanged unless the result is Ok).
TextStatus scalarTextToUtf8(const HostArray& a, std::string& out);

// Throwing form: raises the "QUARTZ:string" host error matching the status.
std::string toUtf8(const HostArray& a);

// UTF-16 code units (the host's char data) to UTF-8; an unpaired surrogate becomes U+FFFD.
std::string utf16ToUtf8(std::u16string_view s);

} // namespace platform
