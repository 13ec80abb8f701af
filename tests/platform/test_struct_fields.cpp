// Struct fields kept as slices of one block: each element's value behaves as an array of its
// own (own data, own identity, outlives the struct array), reads without handles see the same
// thing, and setting one element's value or deep-copying the struct keeps every other value.
#include <platform/HostArray.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

using platform::ClassId;
using platform::HostArray;

namespace {

// A 2 x 3 struct array with field "b" set as slices: element k's value is the 2 x 2 complex
// array whose interleaved parts are 100k, 100k + 1, ..., 100k + 7.
struct Sliced {
    HostArray s = HostArray::createStruct({2, 3}, {"a", "b"});
    std::shared_ptr<double> block{new double[6 * 8], std::default_delete<double[]>()};

    Sliced() {
        for (int k = 0; k < 6 * 8; ++k)
            block.get()[k] = 100.0 * (k / 8) + k % 8;
        s.setField(1, 0, HostArray::scalar(7.0));
        s.setFieldSlices(1, block.get(), {2, 2}, ClassId::Double, true, block);
    }
};

TEST(StructFieldSlices, EachElementIsAnArrayOfItsOwn) {
    Sliced t;
    for (int k = 0; k < 6; ++k) {
        const HostArray v = t.s.getField(k, 1);
        ASSERT_TRUE(v.isNumeric() && v.isComplex());
        EXPECT_EQ(v.dimensions(), (platform::Dims{2, 2}));
        EXPECT_EQ(v.realAt(1), 100.0 * k + 2);
        EXPECT_EQ(v.imagAt(3), 100.0 * k + 7);
        EXPECT_EQ(v.rawData(), t.block.get() + 8 * k);
        EXPECT_TRUE(v.sameArray(t.s.getField(k, 1)));
        if (k > 0) {
            EXPECT_FALSE(v.sameArray(t.s.getField(k - 1, 1)));
        }
        const platform::FieldValueView view = t.s.fieldView(k, 1);
        EXPECT_TRUE(view.present && view.complex && view.cls == ClassId::Double);
        EXPECT_EQ(view.numel, 4u);
        EXPECT_EQ(view.data, v.rawData());
    }
    // The other field is untouched: one value set, the others never set.
    EXPECT_EQ(t.s.getField(1, 0).realAt(0), 7.0);
    EXPECT_TRUE(t.s.getField(0, 0).isNull());
    EXPECT_FALSE(t.s.fieldView(0, 0).present);
    EXPECT_TRUE(t.s.fieldView(1, 0).present);
    // A value outlives the struct array and the caller's reference to the block.
    HostArray v = t.s.getField(4, 1);
    t = Sliced();
    EXPECT_EQ(v.realAt(0), 400.0);
    EXPECT_EQ(v.imagAt(3), 407.0);
    EXPECT_NE(v.rawData(), t.block.get() + 8 * 4);
}

TEST(StructFieldSlices, SettingOneElementKeepsTheOthers) {
    Sliced t;
    const HostArray before = t.s.getField(2, 1);
    t.s.setField(3, 1, HostArray::scalar(-1.0));
    EXPECT_EQ(t.s.getField(3, 1).realAt(0), -1.0);
    for (int k : {0, 1, 2, 4, 5}) {
        EXPECT_EQ(t.s.getField(k, 1).imagAt(0), 100.0 * k + 1);
        EXPECT_EQ(t.s.fieldView(k, 1).data, t.block.get() + 8 * k);
    }
    EXPECT_TRUE(before.sameArray(t.s.getField(2, 1)));
    EXPECT_EQ(t.s.getField(1, 0).realAt(0), 7.0);
    // Slices again over the field: the single value set before is replaced too.
    t.s.setFieldSlices(1, t.block.get(), {2, 2}, ClassId::Double, true, t.block);
    EXPECT_EQ(t.s.getField(3, 1).realAt(0), 300.0);
}

TEST(StructFieldSlices, DeepCopyOwnsEveryValue) {
    Sliced t;
    const HostArray copy = t.s.deepCopy();
    t.block.get()[8 * 5] = -5.0; // writes through to the original's element 5 only
    EXPECT_EQ(t.s.getField(5, 1).realAt(0), -5.0);
    EXPECT_EQ(copy.getField(5, 1).realAt(0), 500.0);
    EXPECT_NE(copy.getField(5, 1).rawData(), t.s.getField(5, 1).rawData());
    EXPECT_EQ(copy.getField(1, 0).realAt(0), 7.0);
    EXPECT_TRUE(copy.getField(0, 0).isNull());
}

} // namespace
