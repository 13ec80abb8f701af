// The embedded host's class system: class descriptions (HostClassInfo) with their methods
// (HostMethodInfo) and properties (HostPropertyInfo), the type repository of data types
// (HostDataType) and conversions (HostTypeConversion), and the host operations on objects
// (create, construct, invoke, get/set property, copy, save, load, destroy).
//
// How a host drives a class that a module registered (C++ host or the Python binding):
//
//   KVInitialize_libqzmathinterp();            // direct link, or ModuleLoader.hpp (dlopen)
//   HostArray x = HostArray::rowVector({1, 2, 3}), v = HostArray::rowVector({4, 5, 7});
//   HostArray args[] = {x, v, HostArray::charRow("linear")};
//   HostArray F = ClassSystem::construct("griddedInterpolant", 3, args); // slot 6 + constructor
//   HostArray in[] = {F, HostArray::scalar(1.5)}, out[1];
//   ClassSystem::invokeMethod("parenReference", 1, out, 2, in);          // F(1.5)
//   HostArray m = ClassSystem::getPropertyArray(F, "Method");
//   ClassSystem::setProperty(F, "Values", HostArray::rowVector({0, 1, 0}));
//   HostArray G = ClassSystem::copyObject(F);                            // shares the evaluator
//   HostArray saved = ClassSystem::saveObject(F);                        // 1 x 1 struct
//   HostArray H = ClassSystem::loadObject("griddedInterpolant", saved);  // setters + slot 31
//   F.release();                                                         // last handle: slot 7
//
// Objects are handles: every HostArray copy of F refers to one instance, and setProperty
// changes that instance. A host that wants value semantics copies (copyObject) before it
// mutates a shared object. Every operation may be called from several threads: registry
// and repository are read-mostly (shared locks), and each object serialises the calls made
// on it (two different objects, e.g. an object and its copy, run concurrently).
#pragma once

#include "platform/HostArray.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform {

class HostDataType;
class HostClassInfo;
class RegisteredClass;

// ---- values of registered data types ---------------------------------------------------

// One value of a registered data type. The payload is opaque to the host: copying a
// TypedValue copies the payload through the type's copyValue slot, destroying it runs the
// type's destroyValue slot. The value keeps its type description alive, so values outlive
// the type's removal from the repository.
class TypedValue {
public:
    TypedValue() noexcept = default;
    // Adopts the payload; the type's destroyValue releases it.
    TypedValue(std::shared_ptr<const HostDataType> type, void* payload) noexcept;
    TypedValue(const TypedValue& o);
    TypedValue(TypedValue&& o) noexcept;
    TypedValue& operator=(const TypedValue& o);
    TypedValue& operator=(TypedValue&& o) noexcept;
    ~TypedValue();

    explicit operator bool() const noexcept { return payload_ != nullptr; }
    const std::shared_ptr<const HostDataType>& type() const noexcept { return type_; }
    std::string typeName() const; // empty for an empty value
    void* payload() const noexcept { return payload_; }
    void reset() noexcept;

private:
    std::shared_ptr<const HostDataType> type_;
    void* payload_ = nullptr;
};

// What a property holds: a host array (a null array when there is nothing) or a value of a
// registered data type. A default PropertyValue is the empty result (a null host array).
using PropertyValue = std::variant<HostArray, TypedValue>;

bool isEmptyValue(const PropertyValue& v) noexcept;

// ---- data types and conversions ----------------------------------------------------------

// A data type of the type repository. Virtual slots in order: 0 destructor, 1 name, 2 kind,
// 3 copy of a value, 4 destruction of a value, 5-9 the type protocol's constant answers
// (category, bits, alignment, flags, holds-a-reference), which the host records as they
// stand when the type is added.
class HostDataType {
public:
    virtual ~HostDataType();
    virtual std::string name() const = 0;
    virtual std::string kind() const = 0; // e.g. "Fundamental"
    // A new payload holding the same value (for a counted reference: the count is raised).
    virtual void* copyValue(const void* payload) const = 0;
    virtual void destroyValue(void* payload) const noexcept = 0;
    virtual int protocolCategory() const = 0;
    virtual int protocolBits() const = 0;
    virtual int protocolAlignment() const = 0;
    virtual int protocolFlags() const = 0;
    virtual bool protocolHoldsReference() const = 0;
};

// A conversion between two types of the repository (a type name or "any").
class HostTypeConversion {
public:
    virtual ~HostTypeConversion();
    // Returns the converted value; an empty PropertyValue when nothing can be made of it.
    virtual PropertyValue convert(const PropertyValue& from) const = 0;
};

// The constant answers of a type as recorded by the repository.
struct DataTypeProtocol {
    int category = 0;
    int bits = 0;
    int alignment = 0;
    int flags = 0;
    bool holdsReference = false;
};

// Process-wide repository of global data types and conversions. A conversion is keyed by
// the unordered pair of type names: (A, B) and (B, A) name the same entry.
class TypeRepository {
public:
    // Adds or replaces the global type of the same name.
    static void addGlobalType(std::shared_ptr<const HostDataType> type);
    // False when no such type was registered.
    static bool removeGlobalType(std::string_view name);
    static std::shared_ptr<const HostDataType> findType(std::string_view name);
    static bool protocolOf(std::string_view name, DataTypeProtocol& out);
    static std::vector<std::string> globalTypeNames();

    // Adds or replaces the conversion for the pair.
    static void addConversion(std::string_view typeA, std::string_view typeB,
                              std::shared_ptr<const HostTypeConversion> conversion);
    static std::shared_ptr<const HostTypeConversion> findConversion(std::string_view typeA,
                                                                    std::string_view typeB);
    // Removes this conversion wherever it is registered; false when it was not.
    static bool removeConversion(const HostTypeConversion* conversion);
    static std::size_t conversionCount();
};

// ---- class descriptions ------------------------------------------------------------------

// Access codes of properties (get and set separately): 0 public; 2 host-only (hidden copy
// properties; user code neither reads nor writes them). 1 is reserved for protected access.
inline constexpr int kAccessPublic = 0;
inline constexpr int kAccessProtected = 1;
inline constexpr int kAccessHostOnly = 2;

// Who is calling: user code is held to the access codes, the host's own protocols are not.
enum class Caller { User, Host };

// A method of a class. Virtual slots: 0 destructor, 1 name, 2 description, 3 visible,
// 4 invoke. A hidden method is callable but not listed to users.
class HostMethodInfo {
public:
    virtual ~HostMethodInfo();
    virtual std::string name() const = 0;
    virtual std::string description() const = 0;
    virtual bool isVisible() const = 0;
    // instance: the native instance (what the class's createInstance returned). The
    // constructor (the method named like the class) receives the user's arguments; every
    // other method receives the object itself as prhs[0], then the arguments.
    virtual void invoke(void* instance, int nlhs, HostArray* plhs, int nrhs,
                        const HostArray* prhs) const = 0;
};

// A property of a class: name, description, value type ("" for a host array, else the name
// of a registered data type), get and set access codes, the attribute word (the host's own
// coding, stored as it stands) and the accessor pair.
class HostPropertyInfo {
public:
    HostPropertyInfo(std::string name, std::string description, std::string typeName, int getAccess,
                     int setAccess, std::uint32_t attributes);
    virtual ~HostPropertyInfo();

    const std::string& name() const noexcept { return name_; }
    const std::string& description() const noexcept { return description_; }
    const std::string& typeName() const noexcept { return typeName_; }
    bool holdsHostArray() const noexcept { return typeName_.empty(); }
    int getAccess() const noexcept { return getAccess_; }
    int setAccess() const noexcept { return setAccess_; }
    std::uint32_t attributes() const noexcept { return attributes_; }
    bool isPublic() const noexcept {
        return getAccess_ == kAccessPublic && setAccess_ == kAccessPublic;
    }

    virtual PropertyValue get(const void* instance) const = 0;
    // value already has the property's type (the host converted it).
    virtual void set(void* instance, const PropertyValue& value) const = 0;

private:
    std::string name_;
    std::string description_;
    std::string typeName_;
    int getAccess_;
    int setAccess_;
    std::uint32_t attributes_;
};

// What a class declares in its define-members slot, in declaration order.
class ClassMembers {
public:
    void addSuperclass(std::string name);
    void addMethod(std::shared_ptr<const HostMethodInfo> method);
    void addProperty(std::shared_ptr<const HostPropertyInfo> property);

    const std::vector<std::string>& superclasses() const noexcept { return superclasses_; }
    const std::vector<std::shared_ptr<const HostMethodInfo>>& methods() const noexcept {
        return methods_;
    }
    const std::vector<std::shared_ptr<const HostPropertyInfo>>& properties() const noexcept {
        return properties_;
    }
    const HostMethodInfo* findMethod(std::string_view name) const noexcept;
    const HostPropertyInfo* findProperty(std::string_view name) const noexcept;

private:
    std::vector<std::string> superclasses_;
    std::vector<std::shared_ptr<const HostMethodInfo>> methods_;
    std::vector<std::shared_ptr<const HostPropertyInfo>> properties_;
    std::vector<std::string> methodNames_;   // cached names, parallel to methods_
    std::vector<std::string> propertyNames_; // parallel to properties_
};

// A class description. Virtual slots in order (slots 11-30 are reserved by the host):
//   0 destructor, 1 class name, 2 class description, 3 package name, 4 class attributes,
//   5 define members, 6 create instance, 7 destroy instance, 8 copy instance,
//   9 save instance, 10 load instance, 31 after-load fix-up.
// Slots 8-10 and 31 have the host's base behaviour; a class overrides what it needs.
class HostClassInfo {
public:
    virtual ~HostClassInfo();
    virtual std::string className() const = 0;
    virtual std::string classDescription() const = 0;
    virtual std::string packageName() const { return {}; }
    virtual std::uint32_t classAttributes() const { return 0; }
    virtual void defineMembers(ClassMembers& members) const = 0;
    // A new native instance with every field empty (not fully constructed).
    virtual void* createInstance() const = 0;
    virtual void destroyInstance(void* instance) const noexcept = 0;
    // Base: the public properties from `from` to `to` (a fresh instance) in declaration
    // order, then the host-only properties (the hidden copy properties) in declaration order.
    virtual void copyInstance(const RegisteredClass& cls, const void* from, void* to) const;
    // Base: a 1 x 1 struct with one field per public property holding a host array.
    virtual HostArray saveInstance(const RegisteredClass& cls, const void* instance) const;
    // Base: every public property present as a field of the record is set, in declaration
    // order, on a fresh instance (the setters only store while it is not fully constructed).
    virtual void loadInstance(const RegisteredClass& cls, void* instance,
                              const HostArray& record) const;
    // Base: nothing.
    virtual void afterLoadFixup(void* instance) const;
};

// A class as the registry holds it: its description and the members it defined.
class RegisteredClass {
public:
    RegisteredClass(std::shared_ptr<const HostClassInfo> info, std::string name,
                    std::string description, ClassMembers members);

    const HostClassInfo& info() const noexcept { return *info_; }
    const std::shared_ptr<const HostClassInfo>& infoPtr() const noexcept { return info_; }
    const std::string& name() const noexcept { return name_; }
    const std::string& description() const noexcept { return description_; }
    const ClassMembers& members() const noexcept { return members_; }
    // The method named like the class, or null.
    const HostMethodInfo* constructorMethod() const noexcept;
    // Methods listed to users (visible ones), in declaration order.
    std::vector<std::string> visibleMethodNames() const;
    std::vector<std::string> publicPropertyNames() const;
    // The class itself or one of its declared superclasses.
    bool isA(std::string_view className) const noexcept;

private:
    std::shared_ptr<const HostClassInfo> info_;
    std::string name_;
    std::string description_;
    ClassMembers members_;
};

// Process-wide registry of classes.
class ClassRegistry {
public:
    // Runs the define-members slot and adds the class, replacing one of the same name
    // (objects of the replaced class keep their description).
    static void addClass(std::shared_ptr<const HostClassInfo> info);
    static bool removeClass(std::string_view name);
    static std::shared_ptr<const RegisteredClass> findClass(std::string_view name);
    static std::vector<std::string> classNames();
};

// ---- objects -----------------------------------------------------------------------------

// A class instance inside a host array of class Object. The last handle's release destroys
// the native instance through the class's destroy slot (7).
class HostObject final : public ObjectValue {
public:
    HostObject(std::shared_ptr<const RegisteredClass> cls, void* instance) noexcept;
    ~HostObject() override;
    HostObject(const HostObject&) = delete;
    HostObject& operator=(const HostObject&) = delete;

    const RegisteredClass& cls() const noexcept { return *cls_; }
    const std::shared_ptr<const RegisteredClass>& clsPtr() const noexcept { return cls_; }
    void* instance() const noexcept { return instance_; }
    // Serialises the calls made on this object.
    std::mutex& mutex() const noexcept { return mutex_; }

private:
    std::shared_ptr<const RegisteredClass> cls_;
    void* instance_;
    mutable std::mutex mutex_;
};

// The host operations. Failures are HostErrorException (from the class's own code, or
// literal-text errors for unknown classes, members and access violations).
class ClassSystem {
public:
    // The mode question a module asks at initialisation: does this host reinitialise
    // modules, so that a module registers on every initialisation call instead of once?
    // The answer is no unless a host (or a test) sets it.
    static bool reinitialisesModules() noexcept;
    static void setReinitialisesModules(bool yes) noexcept;

    // An empty instance (slot 6) of a registered class, as a handle.
    static HostArray createInstance(std::string_view className);
    // createInstance, then the constructor method with the user's arguments. On failure the
    // instance is destroyed (slot 7) and the error passes on.
    static HostArray construct(std::string_view className, int nrhs, const HostArray* prhs);
    // Calls the method `name` of the object prhs[0] (nrhs >= 1).
    static void invokeMethod(std::string_view name, int nlhs, HostArray* plhs, int nrhs,
                             const HostArray* prhs);

    static PropertyValue getProperty(const HostArray& object, std::string_view name,
                                     Caller caller = Caller::User);
    // getProperty for a property that holds a host array.
    static HostArray getPropertyArray(const HostArray& object, std::string_view name,
                                      Caller caller = Caller::User);
    // A value of another type than the property's is converted through the repository
    // (pair of its type name, or "any" for a host array, and the property's type); an empty
    // conversion result is an error.
    static void setProperty(const HostArray& object, std::string_view name,
                            const PropertyValue& value, Caller caller = Caller::User);

    // A new object of the same class through slot 8 (shallow: shares what the hidden copy
    // properties share).
    static HostArray copyObject(const HostArray& object);
    // The public properties as a 1 x 1 struct (slot 9).
    static HostArray saveObject(const HostArray& object);
    // A new instance, filled from a saved record (slot 10), then the after-load fix-up
    // (slot 31).
    static HostArray loadObject(std::string_view className, const HostArray& record);
    // Releases this handle; the instance is destroyed (slot 7) when no other handle holds it.
    static void destroyObject(HostArray& object) noexcept;

    // The object inside a handle; a literal-text error when it is not a class instance.
    static HostObject& objectOf(const HostArray& object);
    static bool isA(const HostArray& object, std::string_view className) noexcept;
};

} // namespace platform
