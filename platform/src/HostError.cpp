// HostError: raising host errors, the warning sink, and the last-warning record.
#include "platform/HostError.hpp"

#include <cstdio>
#include <mutex>

namespace platform {

HostErrorException::HostErrorException(std::string identifier, std::string message,
                                       MessageArgs args)
    : identifier_(std::move(identifier)), message_(std::move(message)), args_(std::move(args)) {}

namespace {
std::string joinId(std::string_view component, std::string_view key) {
    std::string id(component);
    id += ':';
    id += key;
    return id;
}

std::mutex g_warnMutex;
WarningSink g_sink;
WarningRecord g_last;
} // namespace

void HostError::raise(std::string_view component, std::string_view key, MessageArgs args) {
    const std::string id = joinId(component, key);
    std::string text = MessageCatalog::text(id, args);
    throw HostErrorException(id, std::move(text), std::move(args));
}

void HostError::raiseText(std::string_view text) {
    throw HostErrorException(std::string(), std::string(text));
}

void HostError::tooManyOutputs() {
    throw HostErrorException(std::string(kTooManyOutputsId),
                             MessageCatalog::text(kTooManyOutputsId));
}

void HostError::tooManyInputs() {
    throw HostErrorException(std::string(kTooManyInputsId), MessageCatalog::text(kTooManyInputsId));
}

void HostError::tooFewInputs() {
    throw HostErrorException(std::string(kTooFewInputsId), MessageCatalog::text(kTooFewInputsId));
}

void HostError::outOfMemory(std::string_view text) {
    throw HostErrorException(std::string(kOutOfMemoryId),
                             text.empty() ? MessageCatalog::text(kOutOfMemoryId) : std::string(text));
}

void HostError::warning(std::string_view component, std::string_view key, MessageArgs args) {
    const std::string id = joinId(component, key);
    const std::string text = MessageCatalog::text(id, args);
    WarningSink sink;
    {
        std::lock_guard<std::mutex> lock(g_warnMutex);
        sink = g_sink;
        if (!sink) g_last = WarningRecord{id, text};
    }
    if (sink)
        sink(id, text);
    else
        std::fprintf(stderr, "Warning: %s [%s]\n", text.c_str(), id.c_str());
}

WarningSink setWarningSink(WarningSink sink) {
    std::lock_guard<std::mutex> lock(g_warnMutex);
    WarningSink previous = std::move(g_sink);
    g_sink = std::move(sink);
    return previous;
}

WarningRecord lastWarning() {
    std::lock_guard<std::mutex> lock(g_warnMutex);
    return g_last;
}

void clearLastWarning() {
    std::lock_guard<std::mutex> lock(g_warnMutex);
    g_last = WarningRecord{};
}

} // namespace platform
