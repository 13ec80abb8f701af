// The class registry, the base behaviour of class descriptions (copy, save, load) and the
// host operations on objects.
#include "platform/ClassSystem.hpp"

#include "platform/HostError.hpp"

#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <shared_mutex>
#include <utility>

namespace platform {

// ---- members -----------------------------------------------------------------------------

HostMethodInfo::~HostMethodInfo() = default;

HostPropertyInfo::HostPropertyInfo(std::string name, std::string description, std::string typeName,
                                   int getAccess, int setAccess, std::uint32_t attributes)
    : name_(std::move(name)), description_(std::move(description)), typeName_(std::move(typeName)),
      getAccess_(getAccess), setAccess_(setAccess), attributes_(attributes) {}

HostPropertyInfo::~HostPropertyInfo() = default;

void ClassMembers::addSuperclass(std::string name) {
    superclasses_.push_back(std::move(name));
}

void ClassMembers::addMethod(std::shared_ptr<const HostMethodInfo> method) {
    if (!method) return;
    methodNames_.push_back(method->name());
    methods_.push_back(std::move(method));
}

void ClassMembers::addProperty(std::shared_ptr<const HostPropertyInfo> property) {
    if (!property) return;
    propertyNames_.push_back(property->name());
    properties_.push_back(std::move(property));
}

const HostMethodInfo* ClassMembers::findMethod(std::string_view name) const noexcept {
    for (std::size_t k = 0; k < methodNames_.size(); ++k)
        if (methodNames_[k] == name) return methods_[k].get();
    return nullptr;
}

const HostPropertyInfo* ClassMembers::findProperty(std::string_view name) const noexcept {
    for (std::size_t k = 0; k < propertyNames_.size(); ++k)
        if (propertyNames_[k] == name) return properties_[k].get();
    return nullptr;
}

// ---- base behaviour of class descriptions ------------------------------------------------

HostClassInfo::~HostClassInfo() = default;

void HostClassInfo::copyInstance(const RegisteredClass& cls, const void* from, void* to) const {
    const auto& props = cls.members().properties();
    for (const auto& p : props)
        if (p->isPublic()) p->set(to, p->get(from));
    for (const auto& p : props)
        if (p->getAccess() == kAccessHostOnly && p->setAccess() == kAccessHostOnly)
            p->set(to, p->get(from));
}

HostArray HostClassInfo::saveInstance(const RegisteredClass& cls, const void* instance) const {
    std::vector<std::string> names;
    std::vector<HostArray> values;
    for (const auto& p : cls.members().properties()) {
        if (!p->isPublic() || !p->holdsHostArray()) continue;
        names.push_back(p->name());
        values.push_back(std::get<HostArray>(p->get(instance)));
    }
    HostArray record = HostArray::createStruct({1, 1}, names);
    for (std::size_t k = 0; k < values.size(); ++k)
        record.setField(0, k, std::move(values[k]));
    return record;
}

void HostClassInfo::loadInstance(const RegisteredClass& cls, void* instance,
                                 const HostArray& record) const {
    if (!record.isStruct() || record.numberOfElements() != 1)
        HostError::raiseText("A saved " + cls.name() + " object must be a 1-by-1 struct.");
    for (const auto& p : cls.members().properties()) {
        if (!p->isPublic() || !p->holdsHostArray()) continue;
        if (!record.fieldIndex(p->name())) continue; // saved before the property existed
        p->set(instance, record.getField(0, p->name()));
    }
}

void HostClassInfo::afterLoadFixup(void*) const {}

// ---- registered classes and the registry ---------------------------------------------------

RegisteredClass::RegisteredClass(std::shared_ptr<const HostClassInfo> info, std::string name,
                                 std::string description, ClassMembers members)
    : info_(std::move(info)), name_(std::move(name)), description_(std::move(description)),
      members_(std::move(members)) {}

const HostMethodInfo* RegisteredClass::constructorMethod() const noexcept {
    return members_.findMethod(name_);
}

std::vector<std::string> RegisteredClass::visibleMethodNames() const {
    std::vector<std::string> names;
    for (const auto& m : members_.methods())
        if (m->isVisible()) names.push_back(m->name());
    return names;
}

std::vector<std::string> RegisteredClass::publicPropertyNames() const {
    std::vector<std::string> names;
    for (const auto& p : members_.properties())
        if (p->isPublic()) names.push_back(p->name());
    return names;
}

bool RegisteredClass::isA(std::string_view className) const noexcept {
    if (name_ == className) return true;
    const auto& s = members_.superclasses();
    return std::find(s.begin(), s.end(), className) != s.end();
}

namespace {

struct Registry {
    std::shared_mutex mutex;
    std::map<std::string, std::shared_ptr<const RegisteredClass>, std::less<>> classes;
};

Registry& registry() {
    static Registry r;
    return r;
}

std::atomic<bool> g_reinitialisesModules{false};

} // namespace

void ClassRegistry::addClass(std::shared_ptr<const HostClassInfo> info) {
    if (!info) return;
    // The description's slots run outside the lock: they are the module's code.
    ClassMembers members;
    info->defineMembers(members);
    std::string name = info->className();
    auto cls = std::make_shared<const RegisteredClass>(info, name, info->classDescription(),
                                                       std::move(members));
    std::shared_ptr<const RegisteredClass> replaced; // released after the lock
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    auto it = r.classes.find(name);
    if (it != r.classes.end()) {
        replaced = std::move(it->second);
        it->second = std::move(cls);
    } else {
        r.classes.emplace(std::move(name), std::move(cls));
    }
}

bool ClassRegistry::removeClass(std::string_view name) {
    std::shared_ptr<const RegisteredClass> removed;
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    auto it = r.classes.find(name);
    if (it == r.classes.end()) return false;
    removed = std::move(it->second);
    r.classes.erase(it);
    return true;
}

std::shared_ptr<const RegisteredClass> ClassRegistry::findClass(std::string_view name) {
    Registry& r = registry();
    std::shared_lock lock(r.mutex);
    auto it = r.classes.find(name);
    return it == r.classes.end() ? nullptr : it->second;
}

std::vector<std::string> ClassRegistry::classNames() {
    Registry& r = registry();
    std::shared_lock lock(r.mutex);
    std::vector<std::string> names;
    for (const auto& [name, cls] : r.classes)
        names.push_back(name);
    return names;
}

// ---- objects -------------------------------------------------------------------------------

HostObject::HostObject(std::shared_ptr<const RegisteredClass> cls, void* instance) noexcept
    : cls_(std::move(cls)), instance_(instance) {}

HostObject::~HostObject() {
    if (instance_) cls_->info().destroyInstance(instance_);
}

namespace {

std::shared_ptr<const RegisteredClass> requireClass(std::string_view className) {
    auto cls = ClassRegistry::findClass(className);
    if (!cls)
        HostError::raiseText("Unrecognized class '" + std::string(className) +
                             "': no module has registered it.");
    return cls;
}

HostArray newObject(const std::shared_ptr<const RegisteredClass>& cls) {
    void* instance = cls->info().createInstance();
    std::shared_ptr<HostObject> object;
    try {
        object = std::make_shared<HostObject>(cls, instance);
    } catch (...) {
        cls->info().destroyInstance(instance);
        throw;
    }
    return HostArray::object(std::move(object));
}

// Runs f while holding the object's lock. The work is isolated from outer parallel work so
// that a thread waiting inside a parallel loop under this lock never picks up another call
// that needs the same lock.
template <class F>
decltype(auto) locked(const HostObject& object, F&& f) {
    std::lock_guard<std::mutex> lock(object.mutex());
    return tbb::this_task_arena::isolate(std::forward<F>(f));
}

const HostPropertyInfo& requireProperty(const HostObject& object, std::string_view name) {
    const HostPropertyInfo* p = object.cls().members().findProperty(name);
    if (!p)
        HostError::raiseText("Unrecognized property '" + std::string(name) + "' for class '" +
                             object.cls().name() + "'.");
    return *p;
}

void denyAccess(const HostObject& object, const HostPropertyInfo& p, const char* what) {
    HostError::raiseText(std::string("You cannot ") + what + " the '" + p.name() +
                         "' property of class '" + object.cls().name() + "'.");
}

std::string valueTypeName(const PropertyValue& v) {
    if (const TypedValue* t = std::get_if<TypedValue>(&v)) return t->typeName();
    return "any";
}

// The value in the property's own type, converting through the repository when needed.
PropertyValue toPropertyType(const HostObject& object, const HostPropertyInfo& p,
                             const PropertyValue& value) {
    const std::string from = valueTypeName(value);
    if (p.holdsHostArray()) {
        if (std::holds_alternative<HostArray>(value)) return value;
    } else if (from == p.typeName()) {
        return value;
    }
    const std::string to = p.holdsHostArray() ? std::string("any") : p.typeName();
    if (auto conversion = TypeRepository::findConversion(from, to)) {
        PropertyValue converted = conversion->convert(value);
        const bool fits = p.holdsHostArray() ? std::holds_alternative<HostArray>(converted)
                                             : valueTypeName(converted) == p.typeName();
        if (fits && !isEmptyValue(converted)) return converted;
    }
    HostError::raiseText("A value of type '" + from + "' cannot be assigned to the '" + p.name() +
                         "' property of class '" + object.cls().name() + "'.");
}

} // namespace

bool ClassSystem::reinitialisesModules() noexcept {
    return g_reinitialisesModules.load(std::memory_order_acquire);
}

void ClassSystem::setReinitialisesModules(bool yes) noexcept {
    g_reinitialisesModules.store(yes, std::memory_order_release);
}

HostObject& ClassSystem::objectOf(const HostArray& object) {
    if (!object.isObject()) HostError::raiseText("The argument is not an object of a class.");
    auto* o = dynamic_cast<HostObject*>(object.objectValue().get());
    if (!o) HostError::raiseText("The argument is not an object of a registered class.");
    return *o; // the handle keeps it alive
}

bool ClassSystem::isA(const HostArray& object, std::string_view className) noexcept {
    if (!object.isObject()) return false;
    auto* o = dynamic_cast<HostObject*>(object.objectValue().get());
    return o && o->cls().isA(className);
}

HostArray ClassSystem::createInstance(std::string_view className) {
    return newObject(requireClass(className));
}

HostArray ClassSystem::construct(std::string_view className, int nrhs, const HostArray* prhs) {
    auto cls = requireClass(className);
    const HostMethodInfo* ctor = cls->constructorMethod();
    if (!ctor) HostError::raiseText("Class '" + cls->name() + "' has no constructor.");
    HostArray object = newObject(cls);
    HostArray out[1];
    // Nobody else holds the new object yet; isolation as for any locked call.
    tbb::this_task_arena::isolate(
        [&] { ctor->invoke(objectOf(object).instance(), 1, out, nrhs, prhs); });
    return object; // on failure the handle's release destroyed the instance (slot 7)
}

void ClassSystem::invokeMethod(std::string_view name, int nlhs, HostArray* plhs, int nrhs,
                               const HostArray* prhs) {
    if (nrhs < 1 || !prhs) HostError::tooFewInputs();
    const HostArray self = prhs[0]; // keeps the object alive for the call
    HostObject& object = objectOf(self);
    const HostMethodInfo* m = object.cls().members().findMethod(name);
    if (!m || m == object.cls().constructorMethod())
        HostError::raiseText("Unrecognized method '" + std::string(name) + "' for class '" +
                             object.cls().name() + "'.");
    locked(object, [&] { m->invoke(object.instance(), nlhs, plhs, nrhs, prhs); });
}

PropertyValue ClassSystem::getProperty(const HostArray& handle, std::string_view name,
                                       Caller caller) {
    HostObject& object = objectOf(handle);
    const HostPropertyInfo& p = requireProperty(object, name);
    if (caller == Caller::User && p.getAccess() != kAccessPublic) denyAccess(object, p, "get");
    return locked(object, [&] { return p.get(object.instance()); });
}

HostArray ClassSystem::getPropertyArray(const HostArray& handle, std::string_view name,
                                        Caller caller) {
    PropertyValue v = getProperty(handle, name, caller);
    if (HostArray* a = std::get_if<HostArray>(&v)) return std::move(*a);
    HostError::raiseText("The '" + std::string(name) + "' property does not hold an array.");
}

void ClassSystem::setProperty(const HostArray& handle, std::string_view name,
                              const PropertyValue& value, Caller caller) {
    HostObject& object = objectOf(handle);
    const HostPropertyInfo& p = requireProperty(object, name);
    if (caller == Caller::User && p.setAccess() != kAccessPublic) denyAccess(object, p, "set");
    const PropertyValue v = toPropertyType(object, p, value);
    locked(object, [&] { p.set(object.instance(), v); });
}

HostArray ClassSystem::copyObject(const HostArray& handle) {
    HostObject& source = objectOf(handle);
    HostArray copy = newObject(source.clsPtr());
    HostObject& target = objectOf(copy);
    locked(source, [&] {
        source.cls().info().copyInstance(source.cls(), source.instance(), target.instance());
    });
    return copy;
}

HostArray ClassSystem::saveObject(const HostArray& handle) {
    HostObject& object = objectOf(handle);
    return locked(
        object, [&] { return object.cls().info().saveInstance(object.cls(), object.instance()); });
}

HostArray ClassSystem::loadObject(std::string_view className, const HostArray& record) {
    auto cls = requireClass(className);
    HostArray object = newObject(cls);
    void* instance = objectOf(object).instance();
    tbb::this_task_arena::isolate([&] {
        cls->info().loadInstance(*cls, instance, record);
        cls->info().afterLoadFixup(instance);
    });
    return object;
}

void ClassSystem::destroyObject(HostArray& object) noexcept {
    object.release();
}

} // namespace platform
