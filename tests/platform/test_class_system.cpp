// The class system with a small class of its own ("Tally"): registry, members, the host
// operations (construct, invoke, get/set with access codes and conversions, copy through the
// hidden properties, save, load with the after-load fix-up, destroy) and the type repository.
#include <platform/ClassSystem.hpp>
#include <platform/HostError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

using namespace platform;

namespace {

std::atomic<int> g_live{0}; // native Tally instances alive

// A counted token as a registered data type: the payload is a heap shared_ptr<int>.
class TokenType final : public HostDataType {
public:
    std::string name() const override { return "test.tokenType"; }
    std::string kind() const override { return "Fundamental"; }
    void* copyValue(const void* p) const override {
        return new std::shared_ptr<int>(*static_cast<const std::shared_ptr<int>*>(p));
    }
    void destroyValue(void* p) const noexcept override {
        delete static_cast<std::shared_ptr<int>*>(p);
    }
    int protocolCategory() const override { return 7; }
    int protocolBits() const override { return 64; }
    int protocolAlignment() const override { return 8; }
    int protocolFlags() const override { return 0; }
    bool protocolHoldsReference() const override { return true; }
};

std::shared_ptr<const HostDataType> tokenType() {
    static auto t = std::make_shared<TokenType>();
    return t;
}

TypedValue makeToken(std::shared_ptr<int> p) {
    return TypedValue(tokenType(), new std::shared_ptr<int>(std::move(p)));
}

std::shared_ptr<int> tokenOf(const PropertyValue& v) {
    const auto& t = std::get<TypedValue>(v);
    return *static_cast<std::shared_ptr<int>*>(t.payload());
}

struct Tally {
    HostArray data;
    HostArray label;
    HostArray shadow;             // hidden copy property
    std::shared_ptr<int> token;   // hidden copy property (typed)
    std::vector<std::string> log; // which setters ran, in order
    bool fixedUp = false;
    Tally() { ++g_live; }
    ~Tally() { --g_live; }
};

class TallyCtor final : public HostMethodInfo {
public:
    std::string name() const override { return "Tally"; }
    std::string description() const override { return "Tally constructor"; }
    bool isVisible() const override { return true; }
    void invoke(void* inst, int, HostArray*, int nrhs, const HostArray* prhs) const override {
        if (nrhs < 1) HostError::tooFewInputs();
        if (!prhs[0].isFloat()) HostError::raise("TEST:tally", "NotFloat");
        auto& t = *static_cast<Tally*>(inst);
        t.data = prhs[0];
        t.label = nrhs > 1 ? prhs[1] : HostArray::charRow("none");
        t.token = std::make_shared<int>(42);
    }
};

// Hidden method: returns the sum of the data plus its argument.
class TallySum final : public HostMethodInfo {
public:
    std::string name() const override { return "sumPlus"; }
    std::string description() const override { return "Tally sum"; }
    bool isVisible() const override { return false; }
    void invoke(void* inst, int nlhs, HostArray* plhs, int nrhs,
                const HostArray* prhs) const override {
        if (nlhs > 1) HostError::tooManyOutputs();
        if (nrhs < 2) HostError::tooFewInputs();
        const auto& t = *static_cast<const Tally*>(inst);
        double s = prhs[1].realAt(0);
        for (std::uint64_t k = 0; k < t.data.numberOfElements(); ++k)
            s += t.data.realAt(k);
        plhs[0] = HostArray::scalar(s);
    }
};

class ArrayProp final : public HostPropertyInfo {
public:
    ArrayProp(const char* name, HostArray Tally::*field, int access, std::uint32_t attrs)
        : HostPropertyInfo(name, std::string("The ") + name, "", access, access, attrs),
          field_(field) {}
    PropertyValue get(const void* inst) const override {
        return static_cast<const Tally*>(inst)->*field_;
    }
    void set(void* inst, const PropertyValue& v) const override {
        auto& t = *static_cast<Tally*>(inst);
        t.log.push_back(name());
        t.*field_ = std::get<HostArray>(v);
    }

private:
    HostArray Tally::*field_;
};

class TokenProp final : public HostPropertyInfo {
public:
    TokenProp() : HostPropertyInfo("Token", "The token", "test.tokenType", 2, 2, 96) {}
    PropertyValue get(const void* inst) const override {
        return makeToken(static_cast<const Tally*>(inst)->token);
    }
    void set(void* inst, const PropertyValue& v) const override {
        auto& t = *static_cast<Tally*>(inst);
        t.log.push_back(name());
        t.token = tokenOf(v);
    }
};

class TallyClass final : public HostClassInfo {
public:
    std::string className() const override { return "Tally"; }
    std::string classDescription() const override { return "Counts things."; }
    void defineMembers(ClassMembers& m) const override {
        m.addSuperclass("test.mixin.Scalar");
        m.addSuperclass("test.mixin.Paren");
        m.addMethod(std::make_shared<TallyCtor>());
        m.addMethod(std::make_shared<TallySum>());
        m.addProperty(std::make_shared<ArrayProp>("Data", &Tally::data, 0, 2624));
        m.addProperty(std::make_shared<ArrayProp>("Label", &Tally::label, 0, 2624));
        m.addProperty(std::make_shared<ArrayProp>("Shadow", &Tally::shadow, 2, 96));
        m.addProperty(std::make_shared<TokenProp>());
    }
    void* createInstance() const override { return new Tally; }
    void destroyInstance(void* inst) const noexcept override { delete static_cast<Tally*>(inst); }
    void afterLoadFixup(void* inst) const override {
        auto& t = *static_cast<Tally*>(inst);
        t.fixedUp = true;
        if (t.label.isNull()) t.label = HostArray::charRow("none");
    }
};

Tally& tallyOf(const HostArray& obj) {
    return *static_cast<Tally*>(ClassSystem::objectOf(obj).instance());
}

std::string textOf(const HostArray& a) {
    std::string s;
    for (char16_t c : a.charData())
        s.push_back(static_cast<char>(c));
    return s;
}

template <class F>
std::string errorIdOf(F&& f) {
    try {
        f();
    } catch (const HostErrorException& e) {
        return e.identifier().empty() ? "text:" + e.message() : e.identifier();
    }
    return "no error";
}

class ClassSystemTest : public ::testing::Test {
protected:
    void SetUp() override {
        ClassRegistry::addClass(std::make_shared<TallyClass>());
        TypeRepository::addGlobalType(tokenType());
    }
    void TearDown() override {
        ClassRegistry::removeClass("Tally");
        TypeRepository::removeGlobalType("test.tokenType");
        EXPECT_EQ(g_live.load(), 0) << "a native instance leaked";
    }
    static HostArray make(std::vector<double> data) {
        HostArray args[] = {HostArray::rowVector(data), HostArray::charRow("apples")};
        return ClassSystem::construct("Tally", 2, args);
    }
};

TEST_F(ClassSystemTest, RegistryHoldsDescriptionAndMembersInDeclarationOrder) {
    auto cls = ClassRegistry::findClass("Tally");
    ASSERT_TRUE(cls);
    EXPECT_EQ(cls->description(), "Counts things.");
    EXPECT_EQ(cls->members().superclasses(),
              (std::vector<std::string>{"test.mixin.Scalar", "test.mixin.Paren"}));
    EXPECT_EQ(cls->visibleMethodNames(), std::vector<std::string>{"Tally"});
    EXPECT_EQ(cls->publicPropertyNames(), (std::vector<std::string>{"Data", "Label"}));
    const HostPropertyInfo* token = cls->members().findProperty("Token");
    ASSERT_NE(token, nullptr);
    EXPECT_EQ(token->getAccess(), 2);
    EXPECT_EQ(token->attributes(), 96u);
    EXPECT_EQ(cls->members().findProperty("Data")->attributes(), 2624u);
    EXPECT_TRUE(cls->isA("test.mixin.Paren"));
    EXPECT_FALSE(cls->isA("test.mixin.Other"));

    EXPECT_TRUE(ClassRegistry::removeClass("Tally"));
    EXPECT_FALSE(ClassRegistry::removeClass("Tally"));
    EXPECT_FALSE(ClassRegistry::findClass("Tally"));
    EXPECT_EQ(errorIdOf([] { ClassSystem::createInstance("Tally"); }).rfind("text:", 0), 0u);
}

TEST_F(ClassSystemTest, ConstructInvokeAndDestroyAtTheLastHandle) {
    HostArray obj = make({1, 2, 3});
    EXPECT_EQ(g_live.load(), 1);
    EXPECT_TRUE(ClassSystem::isA(obj, "Tally"));
    EXPECT_TRUE(ClassSystem::isA(obj, "test.mixin.Scalar"));

    HostArray in[] = {obj, HostArray::scalar(0.5)}, out[1];
    ClassSystem::invokeMethod("sumPlus", 1, out, 2, in); // hidden, still callable
    EXPECT_EQ(out[0].realAt(0), 6.5);
    EXPECT_EQ(errorIdOf([&] { ClassSystem::invokeMethod("sumPlus", 2, out, 2, in); }),
              kTooManyOutputsId);
    EXPECT_EQ(errorIdOf([&] { ClassSystem::invokeMethod("sumPlus", 1, out, 0, in); }),
              kTooFewInputsId);
    EXPECT_NE(errorIdOf([&] {
                  ClassSystem::invokeMethod("nope", 1, out, 2, in);
              }).find("Unrecognized method 'nope'"),
              std::string::npos);
    // The constructor is not an ordinary method.
    EXPECT_NE(errorIdOf([&] { ClassSystem::invokeMethod("Tally", 1, out, 2, in); }), "no error");
    HostArray notObject[] = {HostArray::scalar(1), HostArray::scalar(2)};
    EXPECT_NE(errorIdOf([&] { ClassSystem::invokeMethod("sumPlus", 1, out, 2, notObject); }),
              "no error");

    HostArray alias = obj.sharedCopy();
    ClassSystem::destroyObject(obj);
    in[0].release();
    EXPECT_EQ(g_live.load(), 1); // alias still holds it
    alias.release();
    EXPECT_EQ(g_live.load(), 0);
}

TEST_F(ClassSystemTest, FailedConstructionDestroysTheInstance) {
    HostArray bad[] = {HostArray::charRow("x")};
    EXPECT_EQ(errorIdOf([&] { ClassSystem::construct("Tally", 1, bad); }), "TEST:tally:NotFloat");
    EXPECT_EQ(errorIdOf([&] { ClassSystem::construct("Tally", -1, bad); }), kTooFewInputsId);
    EXPECT_EQ(g_live.load(), 0);
}

TEST_F(ClassSystemTest, AccessCodesHoldUsersButNotTheHost) {
    HostArray obj = make({1});
    EXPECT_EQ(textOf(ClassSystem::getPropertyArray(obj, "Label")), "apples");
    ClassSystem::setProperty(obj, "Label", HostArray::charRow("pears"));
    EXPECT_EQ(textOf(tallyOf(obj).label), "pears");

    EXPECT_NE(errorIdOf([&] { ClassSystem::getProperty(obj, "Shadow"); }), "no error");
    EXPECT_NE(errorIdOf([&] { ClassSystem::setProperty(obj, "Token", makeToken(nullptr)); }),
              "no error");
    EXPECT_NE(errorIdOf([&] { ClassSystem::getProperty(obj, "Missing"); }), "no error");
    EXPECT_NO_THROW(ClassSystem::getProperty(obj, "Shadow", Caller::Host));
    // A typed property hands out a typed value, not an array.
    EXPECT_NE(errorIdOf([&] { ClassSystem::getPropertyArray(obj, "Token", Caller::Host); }),
              "no error");
}

TEST_F(ClassSystemTest, TypedValuesCountReferencesThroughTheTypeSlots) {
    auto p = std::make_shared<int>(7);
    {
        TypedValue a = makeToken(p);
        EXPECT_EQ(p.use_count(), 2);
        TypedValue b = a; // copyValue
        EXPECT_EQ(p.use_count(), 3);
        TypedValue c = std::move(b); // no copy
        EXPECT_EQ(p.use_count(), 3);
        EXPECT_FALSE(b);
        a = c;
        EXPECT_EQ(p.use_count(), 3);
        EXPECT_EQ(c.typeName(), "test.tokenType");
        // Values outlive the type's removal: they keep the description alive.
        TypeRepository::removeGlobalType("test.tokenType");
        EXPECT_FALSE(TypeRepository::findType("test.tokenType"));
    }
    EXPECT_EQ(p.use_count(), 1);
}

TEST_F(ClassSystemTest, RepositoryRecordsProtocolAnswersAndPairsAreUnordered) {
    DataTypeProtocol proto;
    ASSERT_TRUE(TypeRepository::protocolOf("test.tokenType", proto));
    EXPECT_EQ(proto.category, 7);
    EXPECT_EQ(proto.bits, 64);
    EXPECT_EQ(proto.alignment, 8);
    EXPECT_EQ(proto.flags, 0);
    EXPECT_TRUE(proto.holdsReference);

    struct Empty final : HostTypeConversion {
        PropertyValue convert(const PropertyValue&) const override { return {}; }
    };
    const std::size_t before = TypeRepository::conversionCount();
    auto conv = std::make_shared<Empty>();
    TypeRepository::addConversion("any", "test.tokenType", conv);
    EXPECT_EQ(TypeRepository::findConversion("test.tokenType", "any"), conv);
    EXPECT_EQ(TypeRepository::findConversion("any", "test.tokenType"), conv);
    TypeRepository::addConversion("test.tokenType", "any", conv); // same entry, replaced
    EXPECT_EQ(TypeRepository::conversionCount(), before + 1);
    EXPECT_TRUE(TypeRepository::removeConversion(conv.get()));
    EXPECT_FALSE(TypeRepository::removeConversion(conv.get()));
    EXPECT_FALSE(TypeRepository::findConversion("any", "test.tokenType"));
    EXPECT_EQ(TypeRepository::conversionCount(), before);
}

TEST_F(ClassSystemTest, SettingAnotherTypeGoesThroughTheConversion) {
    HostArray obj = make({1});
    // No conversion: an array cannot become a token.
    EXPECT_NE(errorIdOf([&] {
                  ClassSystem::setProperty(obj, "Token", HostArray::scalar(3), Caller::Host);
              }),
              "no error");
    struct Empty final : HostTypeConversion {
        PropertyValue convert(const PropertyValue&) const override { return {}; }
    };
    struct FromScalar final : HostTypeConversion {
        PropertyValue convert(const PropertyValue& v) const override {
            return makeToken(
                std::make_shared<int>(static_cast<int>(std::get<HostArray>(v).realAt(0))));
        }
    };
    auto empty = std::make_shared<Empty>();
    TypeRepository::addConversion("any", "test.tokenType", empty);
    EXPECT_NE(errorIdOf([&] {
                  ClassSystem::setProperty(obj, "Token", HostArray::scalar(3), Caller::Host);
              }),
              "no error"); // an empty result is refused
    EXPECT_EQ(*tallyOf(obj).token, 42);
    auto from = std::make_shared<FromScalar>();
    TypeRepository::addConversion("test.tokenType", "any", from);
    ClassSystem::setProperty(obj, "Token", HostArray::scalar(3), Caller::Host);
    EXPECT_EQ(*tallyOf(obj).token, 3);
    TypeRepository::removeConversion(from.get());
    // A token for an array property is refused.
    EXPECT_NE(errorIdOf([&] { ClassSystem::setProperty(obj, "Data", makeToken(nullptr)); }),
              "no error");
}

TEST_F(ClassSystemTest, CopySetsPublicThenHiddenPropertiesOnAFreshInstance) {
    HostArray obj = make({1, 2});
    tallyOf(obj).shadow = HostArray::scalar(9);
    const long tokenCount = tallyOf(obj).token.use_count();
    HostArray copy = ClassSystem::copyObject(obj);
    EXPECT_EQ(g_live.load(), 2);
    const Tally& c = tallyOf(copy);
    EXPECT_EQ(c.log, (std::vector<std::string>{"Data", "Label", "Shadow", "Token"}));
    EXPECT_TRUE(c.data.sameArray(tallyOf(obj).data)); // shallow: shared arrays
    EXPECT_TRUE(c.shadow.sameArray(tallyOf(obj).shadow));
    EXPECT_EQ(c.token, tallyOf(obj).token); // shared token
    EXPECT_EQ(tallyOf(obj).token.use_count(), tokenCount + 1);
    EXPECT_FALSE(c.fixedUp);
    // The copy is an object of its own.
    ClassSystem::setProperty(copy, "Label", HostArray::charRow("plums"));
    EXPECT_EQ(textOf(tallyOf(obj).label), "apples");
}

TEST_F(ClassSystemTest, SaveAndLoadGoThroughPublicPropertiesAndTheFixup) {
    HostArray obj = make({4, 5});
    HostArray saved = ClassSystem::saveObject(obj);
    ASSERT_TRUE(saved.isStruct());
    EXPECT_EQ(saved.fieldNames(), (std::vector<std::string>{"Data", "Label"}));
    HostArray loaded = ClassSystem::loadObject("Tally", saved);
    const Tally& t = tallyOf(loaded);
    EXPECT_EQ(t.log, (std::vector<std::string>{"Data", "Label"}));
    EXPECT_TRUE(t.fixedUp);
    EXPECT_EQ(t.data.realAt(1), 5.0);
    EXPECT_EQ(textOf(t.label), "apples");
    EXPECT_FALSE(t.token); // hidden properties are not saved

    // A record saved before a property existed: the fix-up fills it.
    HostArray old = HostArray::createStruct({1, 1}, {"Data"});
    old.setField(0, 0, HostArray::rowVector({1, 2}));
    HostArray fromOld = ClassSystem::loadObject("Tally", old);
    EXPECT_EQ(tallyOf(fromOld).log, std::vector<std::string>{"Data"});
    EXPECT_EQ(textOf(tallyOf(fromOld).label), "none");

    EXPECT_NE(errorIdOf([] { ClassSystem::loadObject("Tally", HostArray::scalar(1)); }),
              "no error");
    EXPECT_NE(errorIdOf([&] { ClassSystem::loadObject("NoSuchClass", saved); }), "no error");
}

TEST_F(ClassSystemTest, ReplacingAClassKeepsObjectsOfTheOldDescription) {
    HostArray obj = make({1});
    auto before = ClassRegistry::findClass("Tally");
    ClassRegistry::addClass(std::make_shared<TallyClass>());
    EXPECT_NE(ClassRegistry::findClass("Tally"), before);
    EXPECT_EQ(&ClassSystem::objectOf(obj).cls(), before.get());
    before.reset();
    HostArray in[] = {obj, HostArray::scalar(0)}, out[1];
    ClassSystem::invokeMethod("sumPlus", 1, out, 2, in);
    EXPECT_EQ(out[0].realAt(0), 1.0);
}

TEST(ClassSystemMode, ReinitialisationQuestionDefaultsToNoAndIsSettable) {
    EXPECT_FALSE(ClassSystem::reinitialisesModules());
    ClassSystem::setReinitialisesModules(true);
    EXPECT_TRUE(ClassSystem::reinitialisesModules());
    ClassSystem::setReinitialisesModules(false);
    EXPECT_FALSE(ClassSystem::reinitialisesModules());
}

} // namespace
