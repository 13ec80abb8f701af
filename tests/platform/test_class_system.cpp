// The class system with a small class of its own ("Tally", TallyClass.hpp): registry,
// members, the host operations (construct, invoke, get/set with access codes, copy through
// the hidden properties, save, load with the after-load fix-up, destroy).
#include "TallyClass.hpp"

#include <functional>

using namespace tally;

namespace {

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

using ClassSystemTest = TallyTest;

TEST_F(ClassSystemTest, RegistryHoldsDescriptionAndMembersInDeclarationOrder) {
    auto cls = ClassRegistry::findClass("Tally");
    ASSERT_TRUE(cls);
    EXPECT_EQ(cls->description(), "Counts things.");
    EXPECT_EQ(cls->members().superclasses(),
              (std::vector<std::string>{"test.mixin.Scalar", "test.mixin.Paren"}));
    EXPECT_EQ(cls->visibleMethodNames(), std::vector<std::string>{"Tally"});
    EXPECT_EQ(cls->publicPropertyNames(), (std::vector<std::string>{"Data", "Label"}));
    const HostPropertyInfo* shadow = cls->members().findProperty("Shadow");
    ASSERT_NE(shadow, nullptr);
    EXPECT_EQ(shadow->getAccess(), 2);
    EXPECT_EQ(shadow->attributes(), 96u);
    EXPECT_TRUE(cls->isA("test.mixin.Paren"));
    EXPECT_FALSE(cls->isA("test.mixin.Other"));

    EXPECT_TRUE(ClassRegistry::removeClass("Tally"));
    EXPECT_FALSE(ClassRegistry::removeClass("Tally"));
    EXPECT_FALSE(ClassRegistry::findClass("Tally"));
    EXPECT_EQ(errorIdOf([] { ClassSystem::createInstance("Tally"); }).rfind("text:", 0), 0u);
}

TEST_F(ClassSystemTest, ConstructInvokeAndDestroyAtTheLastHandle) {
    HostArray bad[] = {HostArray::charRow("x")};
    EXPECT_EQ(errorIdOf([&] { ClassSystem::construct("Tally", 1, bad); }), "TEST:tally:NotFloat");
    EXPECT_EQ(errorIdOf([&] { ClassSystem::construct("Tally", -1, bad); }), kTooFewInputsId);
    EXPECT_EQ(g_live.load(), 0); // a failed construction destroys its instance

    HostArray obj = makeTally({1, 2, 3});
    EXPECT_EQ(g_live.load(), 1);
    EXPECT_TRUE(ClassSystem::isA(obj, "Tally"));
    EXPECT_TRUE(ClassSystem::isA(obj, "test.mixin.Scalar"));
    HostArray in[] = {obj, HostArray::scalar(0.5)}, out[1];
    ClassSystem::invokeMethod("sumPlus", 1, out, 2, in); // hidden, still callable
    EXPECT_EQ(out[0].realAt(0), 6.5);
    HostArray notObject[] = {HostArray::scalar(1), HostArray::scalar(2)};
    const std::pair<std::function<void()>, std::string_view> failures[] = {
        {[&] { ClassSystem::invokeMethod("sumPlus", 2, out, 2, in); }, kTooManyOutputsId},
        {[&] { ClassSystem::invokeMethod("sumPlus", 1, out, 0, in); }, kTooFewInputsId},
        {[&] { ClassSystem::invokeMethod("nope", 1, out, 2, in); }, "Unrecognized method 'nope'"},
        {[&] { ClassSystem::invokeMethod("Tally", 1, out, 2, in); }, ""}, // not an ordinary method
        {[&] { ClassSystem::invokeMethod("sumPlus", 1, out, 2, notObject); }, ""},
    };
    for (const auto& [call, id] : failures) {
        const std::string got = errorIdOf(call);
        EXPECT_NE(got, "no error");
        EXPECT_NE(got.find(id), std::string::npos) << got;
    }

    HostArray alias = obj.sharedCopy();
    ClassSystem::destroyObject(obj);
    in[0].release();
    EXPECT_EQ(g_live.load(), 1); // alias still holds it
    alias.release();
    EXPECT_EQ(g_live.load(), 0);
}

TEST_F(ClassSystemTest, AccessCodesHoldUsersButNotTheHost) {
    HostArray obj = makeTally({1});
    EXPECT_EQ(textOf(ClassSystem::getPropertyArray(obj, "Label")), "apples");
    ClassSystem::setProperty(obj, "Label", HostArray::charRow("pears"));
    EXPECT_EQ(textOf(tallyOf(obj).label), "pears");

    EXPECT_NE(errorIdOf([&] { ClassSystem::getProperty(obj, "Shadow"); }), "no error");
    EXPECT_NE(errorIdOf([&] { ClassSystem::setProperty(obj, "Shadow", HostArray::scalar(1)); }),
              "no error");
    EXPECT_NE(errorIdOf([&] { ClassSystem::getProperty(obj, "Missing"); }), "no error");
    EXPECT_NO_THROW(ClassSystem::getProperty(obj, "Shadow", Caller::Host));
    ClassSystem::setProperty(obj, "Shadow", HostArray::scalar(2), Caller::Host);
    EXPECT_EQ(tallyOf(obj).shadow.realAt(0), 2.0);
}

TEST_F(ClassSystemTest, CopySetsPublicThenHiddenPropertiesOnAFreshInstance) {
    HostArray obj = makeTally({1, 2});
    tallyOf(obj).shadow = HostArray::scalar(9);
    HostArray copy = ClassSystem::copyObject(obj);
    EXPECT_EQ(g_live.load(), 2);
    const Tally& c = tallyOf(copy);
    EXPECT_EQ(c.log, (std::vector<std::string>{"Data", "Label", "Shadow"}));
    EXPECT_TRUE(c.data.sameArray(tallyOf(obj).data)); // shallow: shared arrays
    EXPECT_TRUE(c.shadow.sameArray(tallyOf(obj).shadow));
    EXPECT_FALSE(c.fixedUp);
    // The copy is an object of its own.
    ClassSystem::setProperty(copy, "Label", HostArray::charRow("plums"));
    EXPECT_EQ(textOf(tallyOf(obj).label), "apples");
}

TEST_F(ClassSystemTest, SaveAndLoadGoThroughPublicPropertiesAndTheFixup) {
    HostArray obj = makeTally({4, 5});
    tallyOf(obj).shadow = HostArray::scalar(9);
    HostArray saved = ClassSystem::saveObject(obj);
    ASSERT_TRUE(saved.isStruct());
    EXPECT_EQ(saved.fieldNames(), (std::vector<std::string>{"Data", "Label"}));
    HostArray old = HostArray::createStruct({1, 1}, {"Data"}); // saved before Label existed
    old.setField(0, 0, HostArray::rowVector({1, 2}));
    for (const HostArray& record : {saved, old}) {
        const HostArray loaded = ClassSystem::loadObject("Tally", record);
        const Tally& t = tallyOf(loaded);
        EXPECT_EQ(t.log, record.fieldNames());
        EXPECT_TRUE(t.fixedUp);
        EXPECT_EQ(t.data.realAt(1), record.sameArray(old) ? 2.0 : 5.0);
        EXPECT_EQ(textOf(t.label), record.sameArray(old) ? "none" : "apples");
        EXPECT_TRUE(t.shadow.isNull()); // hidden properties are not saved
    }
    EXPECT_NE(errorIdOf([] { ClassSystem::loadObject("Tally", HostArray::scalar(1)); }),
              "no error");
    EXPECT_NE(errorIdOf([&] { ClassSystem::loadObject("NoSuchClass", saved); }), "no error");
}

TEST_F(ClassSystemTest, ReplacingAClassKeepsObjectsOfTheOldDescription) {
    EXPECT_FALSE(ClassSystem::reinitialisesModules()); // the host's mode question, settable
    ClassSystem::setReinitialisesModules(true);
    EXPECT_TRUE(ClassSystem::reinitialisesModules());
    ClassSystem::setReinitialisesModules(false);

    HostArray obj = makeTally({1});
    auto before = ClassRegistry::findClass("Tally");
    ClassRegistry::addClass(std::make_shared<TallyClass>());
    EXPECT_NE(ClassRegistry::findClass("Tally"), before);
    EXPECT_EQ(&ClassSystem::objectOf(obj).cls(), before.get());
    before.reset();
    HostArray in[] = {obj, HostArray::scalar(0)}, out[1];
    ClassSystem::invokeMethod("sumPlus", 1, out, 2, in);
    EXPECT_EQ(out[0].realAt(0), 1.0);
}

} // namespace
