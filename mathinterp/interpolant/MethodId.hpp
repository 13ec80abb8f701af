// The method words as identifiers, in the order of the word table.
#pragma once

#include <optional>
#include <string_view>

namespace mathinterp {

enum class MethodId { Linear, Nearest, Next, Previous, Pchip, Spline, Cubic, Makima, None };

inline constexpr std::string_view methodWord(MethodId m) noexcept {
    switch (m) {
    case MethodId::Linear: return "linear";
    case MethodId::Nearest: return "nearest";
    case MethodId::Next: return "next";
    case MethodId::Previous: return "previous";
    case MethodId::Pchip: return "pchip";
    case MethodId::Spline: return "spline";
    case MethodId::Cubic: return "cubic";
    case MethodId::Makima: return "makima";
    case MethodId::None: return "none";
    }
    return "";
}

// Exact, case-sensitive match against the first eight words (methods) or all nine.
inline std::optional<MethodId> methodFromWord(std::string_view w, bool isMethod) noexcept {
    const int count = isMethod ? 8 : 9;
    for (int i = 0; i < count; ++i) {
        const auto m = static_cast<MethodId>(i);
        if (methodWord(m) == w) return m;
    }
    return std::nullopt;
}

} // namespace mathinterp
