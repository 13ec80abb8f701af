// HostArray: the embedded host's array value. A cheap handle with shared ownership (atomic
// counts) to numeric arrays (any class, real or interleaved complex, optionally flagged
// sparse), cells, struct arrays, char arrays and string objects. Dimensions are column-major
// and always at least two, as the host has no one-dimensional arrays. A struct field may
// keep the arrays of all its elements as equal slices of one block (see setFieldSlices).
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Class codes of the host.
enum class ClassId : int {
    Unknown = 0,
    Cell = 1,
    Struct = 2,
    Logical = 3,
    Char = 4,
    Double = 6,
    Single = 7,
    Int8 = 8,
    UInt8 = 9,
    Int16 = 10,
    UInt16 = 11,
    Int32 = 12,
    UInt32 = 13,
    Int64 = 14,
    UInt64 = 15,
    String = 16,
    Object = 17,
};

using Dims = std::vector<std::uint64_t>;

// Bytes per element of a class (one part of a complex element); 0 for non-numeric classes.
std::size_t elementSize(ClassId cls) noexcept;
bool isNumericClass(ClassId cls) noexcept;
const char* className(ClassId cls) noexcept;

// Product of dims with overflow check (std::bad_alloc on overflow).
std::uint64_t checkedElementCount(const Dims& dims);

class HostArray;
struct ArrayData;

// Opaque value of a class-system object (an instance of a registered class). The platform
// never looks inside; the class system's instance record derives from this.
struct ObjectValue {
    virtual ~ObjectValue() = default;
};

// What a struct field's value is, read without making a handle (no reference count is
// touched): for loops over the many elements of a struct array.
struct FieldValueView {
    bool present = false; // false: the field was never set
    ClassId cls = ClassId::Unknown;
    bool complex = false;
    bool sparse = false;
    std::uint64_t numel = 0;
    const void* data = nullptr; // numeric and char arrays
};

class HostArray {
public:
    HostArray() = default; // the null handle: no array (a missing cell element)

    // ---- creation --------------------------------------------------------------------
    // Numeric arrays: zero-filled, or uninitialised, owned buffers from the host allocator.
    static HostArray createNumeric(Dims dims, ClassId cls, bool complex = false);
    static HostArray createUninitialisedNumeric(Dims dims, ClassId cls, bool complex = false);
    // A numeric array over a foreign buffer; `owner` keeps the buffer alive for as long as
    // any handle to the array exists. Complex data are interleaved (re, im, re, ...).
    static HostArray wrapNumeric(void* data, Dims dims, ClassId cls, bool complex,
                                 std::shared_ptr<const void> owner, bool readOnly = false);
    static HostArray scalar(double v);
    static HostArray scalarSingle(float v);
    // Convenience: a double row (1 x n) or column (n x 1) holding the given values.
    static HostArray rowVector(const std::vector<double>& v);
    static HostArray columnVector(const std::vector<double>& v);
    static HostArray fromDoubles(Dims dims, const std::vector<double>& v);
    static HostArray fromSingles(Dims dims, const std::vector<float>& v);
    static HostArray fromComplex(Dims dims, const std::vector<std::complex<double>>& v);
    static HostArray fromComplexSingle(Dims dims, const std::vector<std::complex<float>>& v);

    static HostArray createCell(std::uint64_t rows, std::uint64_t cols);
    static HostArray createCell(Dims dims);
    static HostArray cellOf(std::initializer_list<HostArray> items); // 1 x n cell

    static HostArray createStruct(Dims dims, std::vector<std::string> fieldNames);

    static HostArray charRow(std::string_view utf8);                 // 1 x n char array
    static HostArray createChar(Dims dims, std::u16string utf16);     // any shape
    static HostArray stringScalar(std::string_view utf8);            // 1 x 1 string object
    static HostArray missingString();                                // 1 x 1, missing value
    static HostArray createString(Dims dims, std::vector<std::optional<std::string>> items);

    static HostArray object(std::shared_ptr<ObjectValue> value); // 1 x 1 class instance

    // ---- handle ----------------------------------------------------------------------
    explicit operator bool() const noexcept { return static_cast<bool>(data_); }
    bool isNull() const noexcept { return !data_; }
    HostArray sharedCopy() const noexcept { return *this; }
    void release() noexcept {
        data_.reset();
        offset_ = 0;
    }
    long useCount() const noexcept { return data_.use_count(); }
    bool sameArray(const HostArray& o) const noexcept {
        return data_ == o.data_ && offset_ == o.offset_;
    }
    // A deep copy: new buffers, cells and struct fields copied recursively.
    HostArray deepCopy() const;

    // ---- inspection ------------------------------------------------------------------
    ClassId classId() const noexcept;
    bool isSparse() const noexcept;
    bool isComplex() const noexcept;
    bool isEmpty() const noexcept;
    bool isNumeric() const noexcept;
    bool isFloat() const noexcept; // double or single
    bool isCell() const noexcept { return classId() == ClassId::Cell; }
    bool isStruct() const noexcept { return classId() == ClassId::Struct; }
    bool isChar() const noexcept { return classId() == ClassId::Char; }
    bool isStringObject() const noexcept { return classId() == ClassId::String; }
    bool isText() const noexcept { return isChar() || isStringObject(); }
    bool isObject() const noexcept { return classId() == ClassId::Object; }
    bool isVector2D() const noexcept; // two dimensions, one of them 1
    bool isReadOnly() const noexcept;
    std::uint64_t numberOfDimensions() const noexcept;
    const Dims& dimensions() const noexcept;
    std::uint64_t dimension(std::uint64_t k) const noexcept; // 1 beyond the last
    std::uint64_t numberOfElements() const noexcept;

    // ---- numeric data ----------------------------------------------------------------
    void* rawData() const noexcept;
    template <class T>
    T* data() const noexcept {
        return static_cast<T*>(rawData());
    }
    std::size_t elementBytes() const noexcept; // bytes of one element (both parts if complex)
    void setSparse(bool sparse);               // flag only: storage stays dense
    // Value k as double (real part); for tests and small host chores.
    double realAt(std::uint64_t k) const;
    double imagAt(std::uint64_t k) const;

    // ---- cells -----------------------------------------------------------------------
    HostArray getCell(std::uint64_t k) const;
    void setCell(std::uint64_t k, HostArray a);

    // ---- structs ---------------------------------------------------------------------
    const std::vector<std::string>& fieldNames() const;
    std::uint64_t numberOfFields() const;
    std::optional<std::uint64_t> fieldIndex(std::string_view name) const;
    // The value of a field of one element; the null handle when it was never set.
    HostArray getField(std::uint64_t element, std::uint64_t field) const;
    HostArray getField(std::uint64_t element, std::string_view name) const;
    void setField(std::uint64_t element, std::uint64_t field, HostArray a);
    FieldValueView fieldView(std::uint64_t element, std::uint64_t field) const;
    // When the field is kept as slices (setFieldSlices): element 0's value, whose record and
    // owner every element's value shares; element k's data start k * (bytes of one value)
    // later. Otherwise the null handle.
    HostArray slicedField(std::uint64_t field) const;
    // Sets field `field` of every element at once: element k's value becomes a numeric array
    // of shape `dims` over the k-th slice of `block` (slices of that shape's size, back to
    // back). No per-element record is made, so a struct array of many elements costs about
    // what one numeric array does; `owner` keeps the block alive while any slice is in use.
    void setFieldSlices(std::uint64_t field, void* block, const Dims& dims, ClassId cls,
                        bool complex, std::shared_ptr<const void> owner);

    // ---- text ------------------------------------------------------------------------
    const std::u16string& charData() const;                   // char arrays
    const std::optional<std::string>& stringAt(std::uint64_t k) const; // string objects

    // ---- objects ---------------------------------------------------------------------
    std::shared_ptr<ObjectValue> objectValue() const;

private:
    explicit HostArray(std::shared_ptr<ArrayData> d, std::size_t offset = 0)
        : data_(std::move(d)), offset_(offset) {}
    std::shared_ptr<ArrayData> data_;
    std::size_t offset_ = 0; // bytes from the record's data: a slice of a field block
};

} // namespace platform
