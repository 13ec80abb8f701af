// The type repository: global data types, conversions keyed by unordered type-name pairs,
// and TypedValue, whose copies and destruction run the type's value slots.
#include "platform/ClassSystem.hpp"

#include <map>
#include <shared_mutex>
#include <utility>

namespace platform {

// ---- TypedValue --------------------------------------------------------------------------

TypedValue::TypedValue(std::shared_ptr<const HostDataType> type, void* payload) noexcept
    : type_(std::move(type)), payload_(payload) {
    if (!type_) payload_ = nullptr;
}

TypedValue::TypedValue(const TypedValue& o) : type_(o.type_) {
    if (o.payload_) payload_ = type_->copyValue(o.payload_);
}

TypedValue::TypedValue(TypedValue&& o) noexcept
    : type_(std::move(o.type_)), payload_(std::exchange(o.payload_, nullptr)) {}

TypedValue& TypedValue::operator=(const TypedValue& o) {
    if (this != &o) {
        TypedValue tmp(o); // copy first: a throwing copy leaves *this unchanged
        *this = std::move(tmp);
    }
    return *this;
}

TypedValue& TypedValue::operator=(TypedValue&& o) noexcept {
    if (this != &o) {
        reset();
        type_ = std::move(o.type_);
        payload_ = std::exchange(o.payload_, nullptr);
    }
    return *this;
}

TypedValue::~TypedValue() {
    reset();
}

void TypedValue::reset() noexcept {
    if (payload_) type_->destroyValue(payload_);
    payload_ = nullptr;
    type_.reset();
}

std::string TypedValue::typeName() const {
    return type_ ? type_->name() : std::string();
}

bool isEmptyValue(const PropertyValue& v) noexcept {
    if (const HostArray* a = std::get_if<HostArray>(&v)) return a->isNull();
    return !std::get<TypedValue>(v);
}

HostDataType::~HostDataType() = default;
HostTypeConversion::~HostTypeConversion() = default;

// ---- TypeRepository ----------------------------------------------------------------------

namespace {

struct TypeEntry {
    std::shared_ptr<const HostDataType> type;
    DataTypeProtocol protocol;
};

// An unordered pair: the smaller name first.
std::pair<std::string, std::string> pairKey(std::string_view a, std::string_view b) {
    if (b < a) std::swap(a, b);
    return {std::string(a), std::string(b)};
}

struct Repository {
    std::shared_mutex mutex;
    std::map<std::string, TypeEntry, std::less<>> types;
    std::map<std::pair<std::string, std::string>, std::shared_ptr<const HostTypeConversion>>
        conversions;
};

Repository& repository() {
    static Repository r;
    return r;
}

} // namespace

void TypeRepository::addGlobalType(std::shared_ptr<const HostDataType> type) {
    if (!type) return;
    TypeEntry entry;
    entry.protocol =
        DataTypeProtocol{type->protocolCategory(), type->protocolBits(), type->protocolAlignment(),
                         type->protocolFlags(), type->protocolHoldsReference()};
    std::string name = type->name();
    entry.type = std::move(type);
    Repository& r = repository();
    std::unique_lock lock(r.mutex);
    r.types.insert_or_assign(std::move(name), std::move(entry));
}

bool TypeRepository::removeGlobalType(std::string_view name) {
    Repository& r = repository();
    std::shared_ptr<const HostDataType> removed; // destroyed after the lock is released
    std::unique_lock lock(r.mutex);
    auto it = r.types.find(name);
    if (it == r.types.end()) return false;
    removed = std::move(it->second.type);
    r.types.erase(it);
    return true;
}

std::shared_ptr<const HostDataType> TypeRepository::findType(std::string_view name) {
    Repository& r = repository();
    std::shared_lock lock(r.mutex);
    auto it = r.types.find(name);
    return it == r.types.end() ? nullptr : it->second.type;
}

bool TypeRepository::protocolOf(std::string_view name, DataTypeProtocol& out) {
    Repository& r = repository();
    std::shared_lock lock(r.mutex);
    auto it = r.types.find(name);
    if (it == r.types.end()) return false;
    out = it->second.protocol;
    return true;
}

std::vector<std::string> TypeRepository::globalTypeNames() {
    Repository& r = repository();
    std::shared_lock lock(r.mutex);
    std::vector<std::string> names;
    names.reserve(r.types.size());
    for (const auto& [name, entry] : r.types)
        names.push_back(name);
    return names;
}

void TypeRepository::addConversion(std::string_view typeA, std::string_view typeB,
                                   std::shared_ptr<const HostTypeConversion> conversion) {
    if (!conversion) return;
    auto key = pairKey(typeA, typeB);
    Repository& r = repository();
    std::unique_lock lock(r.mutex);
    r.conversions.insert_or_assign(std::move(key), std::move(conversion));
}

std::shared_ptr<const HostTypeConversion> TypeRepository::findConversion(std::string_view typeA,
                                                                         std::string_view typeB) {
    const auto key = pairKey(typeA, typeB);
    Repository& r = repository();
    std::shared_lock lock(r.mutex);
    auto it = r.conversions.find(key);
    return it == r.conversions.end() ? nullptr : it->second;
}

bool TypeRepository::removeConversion(const HostTypeConversion* conversion) {
    if (!conversion) return false;
    Repository& r = repository();
    std::vector<std::shared_ptr<const HostTypeConversion>> removed; // released unlocked
    std::unique_lock lock(r.mutex);
    for (auto it = r.conversions.begin(); it != r.conversions.end();) {
        if (it->second.get() == conversion) {
            removed.push_back(std::move(it->second));
            it = r.conversions.erase(it);
        } else {
            ++it;
        }
    }
    return !removed.empty();
}

std::size_t TypeRepository::conversionCount() {
    Repository& r = repository();
    std::shared_lock lock(r.mutex);
    return r.conversions.size();
}

} // namespace platform
