// Module initialisation and termination: what is registered (class description, members,
// data type, conversion), once-only registration, the mode question, and registering again
// after termination in the same process.
#include "host/HostTestSupport.hpp"

#include <platform/ClassSystem.hpp>

using namespace hosttest;
using platform::ClassRegistry;
using platform::TypeRepository;

namespace {

constexpr const char* kType = "quartz.internal.math.gridInterpType";

bool fullyRegistered() {
    return ClassRegistry::findClass("griddedInterpolant") && TypeRepository::findType(kType) &&
           TypeRepository::findConversion("any", kType);
}

bool nothingRegistered() {
    return !ClassRegistry::findClass("griddedInterpolant") && !TypeRepository::findType(kType) &&
           !TypeRepository::findConversion("any", kType) &&
           !TypeRepository::findConversion(kType, "any");
}

// A registered module answers an evaluation: F = griddedInterpolant([1 2 3], [4 5 7]).
void expectWorkingClass() {
    HostArray f = construct({HostArray::rowVector({1, 2, 3}), HostArray::rowVector({4, 5, 7})});
    EXPECT_EQ(doubles(paren(f, {HostArray::rowVector({1.5, 2.5})})),
              (std::vector<double>{4.5, 6.0}));
}

TEST(ModuleLifecycle, RegisterTerminateAndRegisterAgainInOneProcess) {
    KVTerminate_libqzmathinterp(); // whatever an earlier test left
    ASSERT_TRUE(nothingRegistered());
    KVInitialize_libqzmathinterp();
    ASSERT_TRUE(fullyRegistered());
    expectWorkingClass();

    // An object made before termination outlives it, evaluator and all.
    HostArray survivor = construct({HostArray::rowVector({0, 1}), HostArray::rowVector({0, 10})});
    HostArray copy = ClassSystem::copyObject(survivor);
    KVTerminate_libqzmathinterp();
    EXPECT_TRUE(nothingRegistered());
    EXPECT_NE(errorId([] { expectWorkingClass(); }), "none");
    EXPECT_EQ(doubles(paren(copy, {HostArray::scalar(0.25)})), std::vector<double>{2.5});
    EXPECT_NO_THROW(evaluatorOf(copy)); // values of the removed type still copy and destroy
    KVTerminate_libqzmathinterp();      // a second termination is harmless
    EXPECT_TRUE(nothingRegistered());

    KVInitialize_libqzmathinterp();
    ASSERT_TRUE(fullyRegistered());
    expectWorkingClass();
    EXPECT_EQ(TypeRepository::conversionCount(), 1u);
}

TEST(ModuleLifecycle, RegistersOnceUnlessTheHostReinitialisesModules) {
    KVInitialize_libqzmathinterp();
    auto first = ClassRegistry::findClass("griddedInterpolant");
    auto firstType = TypeRepository::findType(kType);
    KVInitialize_libqzmathinterp();
    EXPECT_EQ(ClassRegistry::findClass("griddedInterpolant"), first);
    EXPECT_EQ(TypeRepository::findType(kType), firstType);

    platform::ClassSystem::setReinitialisesModules(true);
    KVInitialize_libqzmathinterp();
    platform::ClassSystem::setReinitialisesModules(false);
    EXPECT_NE(ClassRegistry::findClass("griddedInterpolant"), first);
    EXPECT_NE(TypeRepository::findType(kType), firstType);
    EXPECT_EQ(TypeRepository::conversionCount(), 1u); // replaced, not duplicated
    expectWorkingClass();
}

TEST(ModuleLifecycle, ClassDescriptionDeclaresTheMembersInOrder) {
    KVInitialize_libqzmathinterp();
    auto cls = ClassRegistry::findClass("griddedInterpolant");
    ASSERT_TRUE(cls);
    EXPECT_EQ(cls->description(), "Interpolate on rectangular ndgrids.");
    EXPECT_EQ(cls->members().superclasses(),
              (std::vector<std::string>{"quartz.mixin.internal.Scalar",
                                        "quartz.mixin.internal.indexing.Paren"}));

    const auto& methods = cls->members().methods();
    ASSERT_EQ(methods.size(), 4u);
    EXPECT_EQ(methods[0]->name(), "griddedInterpolant");
    EXPECT_EQ(methods[0]->description(), "griddedInterpolant constructor");
    EXPECT_TRUE(methods[0]->isVisible());
    EXPECT_EQ(methods[1]->name(), "parenReference");
    EXPECT_EQ(methods[1]->description(), "griddedInterpolant evaluation");
    EXPECT_FALSE(methods[1]->isVisible());
    EXPECT_EQ(methods[2]->name(), "gradient");
    EXPECT_EQ(methods[3]->name(), "derivative");
    EXPECT_FALSE(methods[2]->isVisible() || methods[3]->isVisible());
    EXPECT_EQ(cls->constructorMethod(), methods[0].get());

    struct Row {
        const char* name;
        const char* description;
        const char* type;
        int access;
        std::uint32_t attributes;
    };
    const Row rows[] = {
        {"GridVectors", "Vectors defining the grid nodes.", "", 0, 2624},
        {"Values", "Values at each grid node.", "", 0, 2624},
        {"Method", "Interpolation method.", "", 0, 2624},
        {"ExtrapolationMethod", "Extrapolation method.", "", 0, 2624},
        {"ValuesForCopy", "For shallow-copying the values at each grid node.", "", 2, 96},
        {"UnderlyingInterpolantForCopy", "For shallow-copying the underlying builtin interpolant.",
         kType, 2, 96},
    };
    const auto& props = cls->members().properties();
    ASSERT_EQ(props.size(), std::size(rows));
    for (std::size_t k = 0; k < std::size(rows); ++k) {
        SCOPED_TRACE(rows[k].name);
        EXPECT_EQ(props[k]->name(), rows[k].name);
        EXPECT_EQ(props[k]->description(), rows[k].description);
        EXPECT_EQ(props[k]->typeName(), rows[k].type);
        EXPECT_EQ(props[k]->getAccess(), rows[k].access);
        EXPECT_EQ(props[k]->setAccess(), rows[k].access);
        EXPECT_EQ(props[k]->attributes(), rows[k].attributes);
    }
}

TEST(ModuleLifecycle, DataTypeCountsEvaluatorReferencesAndConversionYieldsNothing) {
    KVInitialize_libqzmathinterp();
    auto type = TypeRepository::findType(kType);
    ASSERT_TRUE(type);
    EXPECT_EQ(type->name(), kType);
    EXPECT_EQ(type->kind(), "Fundamental");
    platform::DataTypeProtocol p;
    ASSERT_TRUE(TypeRepository::protocolOf(kType, p));
    EXPECT_EQ(p.category, 7);
    EXPECT_EQ(p.bits, 64);
    EXPECT_EQ(p.alignment, 8);
    EXPECT_EQ(p.flags, 0);
    EXPECT_TRUE(p.holdsReference);

    HostArray f = construct({HostArray::rowVector({1, 2, 3}), HostArray::rowVector({4, 5, 7})});
    auto evaluator = evaluatorOf(f);
    ASSERT_TRUE(evaluator);
    const long base = evaluator.use_count();
    {
        platform::TypedValue v = mathinterp::makeEvaluatorValue(evaluator);
        EXPECT_EQ(evaluator.use_count(), base + 1);
        platform::TypedValue w = v; // the type's copy slot
        EXPECT_EQ(evaluator.use_count(), base + 2);
        EXPECT_EQ(mathinterp::evaluatorOfValue(w), evaluator);
    }
    EXPECT_EQ(evaluator.use_count(), base);

    auto conversion = TypeRepository::findConversion(kType, "any");
    ASSERT_TRUE(conversion);
    EXPECT_TRUE(platform::isEmptyValue(conversion->convert(HostArray::scalar(1))));
    // So user code cannot put an array where the evaluator goes.
    EXPECT_NE(errorId([&] {
                  ClassSystem::setProperty(f, "UnderlyingInterpolantForCopy", HostArray::scalar(1),
                                           platform::Caller::Host);
              }),
              "none");
}

} // namespace
