// Module initialisation and termination: what is registered (class description, members,
// data type, conversion), once-only registration, the mode question, and registering again
// after termination in the same process.
#include "host/HostTestSupport.hpp"

#include <platform/ClassSystem.hpp>

#include <tuple>

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

HostArray line3() {
    return construct({HostArray::rowVector({1, 2, 3}), HostArray::rowVector({4, 5, 7})});
}

// A registered module answers an evaluation: F = griddedInterpolant([1 2 3], [4 5 7]).
void expectWorkingClass() {
    EXPECT_EQ(doubles(paren(line3(), {HostArray::rowVector({1.5, 2.5})})),
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

    // One line a member: name | description | visible (methods) or type | access | attributes.
    std::vector<std::string> methods, props;
    for (const auto& m : cls->members().methods())
        methods.push_back(m->name() + " | " + m->description() + " | " +
                          (m->isVisible() ? "visible" : "hidden"));
    for (const auto& p : cls->members().properties()) {
        EXPECT_EQ(p->getAccess(), p->setAccess()) << p->name();
        props.push_back(p->name() + " | " + p->description() + " | " + p->typeName() + " | " +
                        std::to_string(p->getAccess()) + " | " + std::to_string(p->attributes()));
    }
    EXPECT_EQ(methods, (std::vector<std::string>{
                           "griddedInterpolant | griddedInterpolant constructor | visible",
                           "parenReference | griddedInterpolant evaluation | hidden",
                           "gradient | griddedInterpolant gradient | hidden",
                           "derivative | griddedInterpolant 1-D derivative | hidden"}));
    EXPECT_EQ(cls->constructorMethod(), cls->members().methods()[0].get());
    EXPECT_EQ(props,
              (std::vector<std::string>{
                  "GridVectors | Vectors defining the grid nodes. |  | 0 | 2624",
                  "Values | Values at each grid node. |  | 0 | 2624",
                  "Method | Interpolation method. |  | 0 | 2624",
                  "ExtrapolationMethod | Extrapolation method. |  | 0 | 2624",
                  "ValuesForCopy | For shallow-copying the values at each grid node. |  | 2 | 96",
                  std::string("UnderlyingInterpolantForCopy | For shallow-copying the "
                              "underlying builtin interpolant. | ") +
                      kType + " | 2 | 96"}));
}

TEST(ModuleLifecycle, DataTypeCountsEvaluatorReferencesAndConversionYieldsNothing) {
    KVInitialize_libqzmathinterp();
    auto type = TypeRepository::findType(kType);
    ASSERT_TRUE(type);
    EXPECT_EQ(type->name(), kType);
    EXPECT_EQ(type->kind(), "Fundamental");
    platform::DataTypeProtocol p;
    ASSERT_TRUE(TypeRepository::protocolOf(kType, p));
    EXPECT_EQ(std::tuple(p.category, p.bits, p.alignment, p.flags, p.holdsReference),
              std::tuple(7, 64, 8, 0, true));

    HostArray f = line3();
    auto evaluator = evaluatorOf(f);
    ASSERT_TRUE(evaluator);
    const long base = evaluator.use_count();
    {
        platform::TypedValue v = mathinterp::makeEvaluatorValue(evaluator);
        EXPECT_EQ(evaluator.use_count(), base + 1);
        platform::TypedValue w = v; // the type's copy slot
        EXPECT_EQ(evaluator.use_count(), base + 2);
        EXPECT_EQ(mathinterp::evaluatorOfValue(w), evaluator);
        platform::TypedValue x = std::move(w); // no copy
        EXPECT_EQ(evaluator.use_count(), base + 2);
        EXPECT_FALSE(w);
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
