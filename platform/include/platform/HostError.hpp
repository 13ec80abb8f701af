// HostError: how the embedded host reports errors and warnings to its user. Errors by
// identifier ("COMPONENT:key", text from the MessageCatalog with the arguments filled in), by
// literal text, and the standard argument-count errors; all are thrown as HostErrorException.
// Warnings by identifier go to the warning sink the host installs and execution goes on.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform {

using MessageArg = std::variant<std::string, std::int64_t, double>;
using MessageArgs = std::vector<MessageArg>;

// The error a host user sees. identifier() is empty for errors raised by literal text.
class HostErrorException : public std::exception {
public:
    HostErrorException(std::string identifier, std::string message, MessageArgs args = {});
    const char* what() const noexcept override { return message_.c_str(); }
    const std::string& identifier() const noexcept { return identifier_; }
    const std::string& message() const noexcept { return message_; }
    const MessageArgs& args() const noexcept { return args_; }

private:
    std::string identifier_;
    std::string message_;
    MessageArgs args_;
};

// Identifiers of the standard errors the host itself raises.
inline constexpr std::string_view kTooManyOutputsId = "QUARTZ:maxlhs";
inline constexpr std::string_view kTooManyInputsId = "QUARTZ:maxrhs";
inline constexpr std::string_view kTooFewInputsId = "QUARTZ:minrhs";
inline constexpr std::string_view kOutOfMemoryId = "QUARTZ:nomem";

class HostError {
public:
    [[noreturn]] static void raise(std::string_view component, std::string_view key,
                                   MessageArgs args = {});
    [[noreturn]] static void raiseText(std::string_view text);
    [[noreturn]] static void tooManyOutputs();
    [[noreturn]] static void tooManyInputs();
    [[noreturn]] static void tooFewInputs();
    // The standard out-of-memory error; `text`, when given, replaces the catalog's text (a
    // refusal by the memory budget names the bytes and the limit).
    [[noreturn]] static void outOfMemory(std::string_view text = {});
    static void warning(std::string_view component, std::string_view key, MessageArgs args = {});
};

// Receives every warning: its identifier and its catalog text.
using WarningSink = std::function<void(const std::string& identifier, const std::string& text)>;
// Installs a sink (an empty function restores the default, which records the last warning
// and writes it to stderr); returns the previous one. Process-wide.
WarningSink setWarningSink(WarningSink sink);

struct WarningRecord {
    std::string identifier;
    std::string text;
};
// The last warning issued while the default sink was installed.
WarningRecord lastWarning();
void clearLastWarning();

// The message catalog: one text per identifier, with placeholders {1}, {2}, ... for the
// arguments. text() of an unknown identifier returns the identifier itself.
class MessageCatalog {
public:
    static bool has(std::string_view identifier);
    static std::string text(std::string_view identifier, const MessageArgs& args = {});
    static std::vector<std::string> identifiers();
};

} // namespace platform
