// HostArray storage: one ArrayData record per array, shared by every handle to it.
#include "platform/HostArray.hpp"

#include "platform/HostAllocator.hpp"
#include "platform/HostError.hpp"

#include <cstring>
#include <stdexcept>

namespace platform {

struct BufferDeleter {
    void operator()(void* p) const noexcept { hostFree(p); }
};

// What only cells, structs, text and objects hold: numeric arrays (many small ones, for a
// grid of structs) carry a null pointer instead.
struct ArrayExtra {
    std::vector<HostArray> items; // cell elements, or struct values (element-major; a struct
                                  // makes them on its first setField)
    // Struct fields whose values are slices of one block (setFieldSlices): one record per
    // field, describing slice 0; empty, or null for a field kept in `items`.
    std::vector<std::shared_ptr<ArrayData>> columns;
    std::vector<std::string> fields;
    std::u16string chars;
    std::vector<std::optional<std::string>> strings;
    std::shared_ptr<ObjectValue> object;
};

struct ArrayData {
    ClassId cls = ClassId::Double;
    bool complex = false;
    bool sparse = false;
    bool readOnly = false;
    Dims dims; // set by every creation path
    std::uint64_t numel = 0;
    // numeric
    void* data = nullptr;
    std::unique_ptr<void, BufferDeleter> owned;
    std::shared_ptr<const void> owner;
    std::unique_ptr<ArrayExtra> extra;
    // For writers: made on first use.
    ArrayExtra& x() {
        if (!extra) extra = std::make_unique<ArrayExtra>();
        return *extra;
    }
    // For readers: never allocates, so concurrent readers never write.
    const ArrayExtra& ext() const {
        static const ArrayExtra empty;
        return extra ? *extra : empty;
    }
};

namespace {
Dims normaliseDims(Dims dims) {
    if (dims.empty()) dims = {0, 0};
    if (dims.size() == 1) dims.push_back(1);
    while (dims.size() > 2 && dims.back() == 1) dims.pop_back();
    return dims;
}

std::shared_ptr<ArrayData> makeData(ClassId cls, Dims dims) {
    auto d = std::make_shared<ArrayData>();
    d->cls = cls;
    d->dims = normaliseDims(std::move(dims));
    d->numel = checkedElementCount(d->dims);
    return d;
}

std::shared_ptr<ArrayData> makeNumeric(Dims dims, ClassId cls, bool complex, bool zero) {
    if (!isNumericClass(cls)) throw std::invalid_argument("createNumeric: not a numeric class");
    auto d = makeData(cls, std::move(dims));
    d->complex = complex;
    const std::size_t es = elementSize(cls) * (complex ? 2 : 1);
    if (d->numel > static_cast<std::uint64_t>(-1) / es) throw std::bad_alloc();
    const std::size_t bytes = static_cast<std::size_t>(d->numel) * es;
    void* p = zero ? hostCalloc(bytes == 0 ? 1 : bytes, 1) : hostMalloc(bytes);
    if (!p) throwAllocationFailure();
    d->owned.reset(p);
    d->data = p;
    return d;
}
} // namespace

std::size_t elementSize(ClassId cls) noexcept {
    switch (cls) {
    case ClassId::Double:
    case ClassId::Int64:
    case ClassId::UInt64:
        return 8;
    case ClassId::Single:
    case ClassId::Int32:
    case ClassId::UInt32:
        return 4;
    case ClassId::Int16:
    case ClassId::UInt16:
    case ClassId::Char:
        return 2;
    case ClassId::Int8:
    case ClassId::UInt8:
    case ClassId::Logical:
        return 1;
    default:
        return 0;
    }
}

bool isNumericClass(ClassId cls) noexcept {
    return cls == ClassId::Logical || cls == ClassId::Double || cls == ClassId::Single ||
           (static_cast<int>(cls) >= 8 && static_cast<int>(cls) <= 15);
}

const char* className(ClassId cls) noexcept {
    switch (cls) {
    case ClassId::Cell: return "cell";
    case ClassId::Struct: return "struct";
    case ClassId::Logical: return "logical";
    case ClassId::Char: return "char";
    case ClassId::Double: return "double";
    case ClassId::Single: return "single";
    case ClassId::Int8: return "int8";
    case ClassId::UInt8: return "uint8";
    case ClassId::Int16: return "int16";
    case ClassId::UInt16: return "uint16";
    case ClassId::Int32: return "int32";
    case ClassId::UInt32: return "uint32";
    case ClassId::Int64: return "int64";
    case ClassId::UInt64: return "uint64";
    case ClassId::String: return "string";
    case ClassId::Object: return "object";
    default: return "unknown";
    }
}

std::uint64_t checkedElementCount(const Dims& dims) {
    std::uint64_t n = 1;
    for (std::uint64_t e : dims) {
        if (e != 0 && n > static_cast<std::uint64_t>(-1) / e) throw std::bad_alloc();
        n *= e;
    }
    return n;
}

// ---- creation ----------------------------------------------------------------------------

HostArray HostArray::createNumeric(Dims dims, ClassId cls, bool complex) {
    return HostArray(makeNumeric(std::move(dims), cls, complex, true));
}

HostArray HostArray::createUninitialisedNumeric(Dims dims, ClassId cls, bool complex) {
    return HostArray(makeNumeric(std::move(dims), cls, complex, false));
}

HostArray HostArray::wrapNumeric(void* data, Dims dims, ClassId cls, bool complex,
                                 std::shared_ptr<const void> owner, bool readOnly) {
    if (!isNumericClass(cls)) throw std::invalid_argument("wrapNumeric: not a numeric class");
    auto d = makeData(cls, std::move(dims));
    d->complex = complex;
    d->data = data;
    d->owner = std::move(owner);
    d->readOnly = readOnly;
    return HostArray(std::move(d));
}

HostArray HostArray::scalar(double v) { return fromDoubles({1, 1}, {v}); }

HostArray HostArray::scalarSingle(float v) { return fromSingles({1, 1}, {v}); }

HostArray HostArray::rowVector(const std::vector<double>& v) {
    return fromDoubles({1, v.size()}, v);
}

HostArray HostArray::columnVector(const std::vector<double>& v) {
    return fromDoubles({v.size(), 1}, v);
}

HostArray HostArray::fromDoubles(Dims dims, const std::vector<double>& v) {
    HostArray a = createUninitialisedNumeric(std::move(dims), ClassId::Double);
    if (a.numberOfElements() != v.size()) throw std::invalid_argument("fromDoubles: size");
    if (!v.empty()) std::memcpy(a.rawData(), v.data(), v.size() * sizeof(double));
    return a;
}

HostArray HostArray::fromSingles(Dims dims, const std::vector<float>& v) {
    HostArray a = createUninitialisedNumeric(std::move(dims), ClassId::Single);
    if (a.numberOfElements() != v.size()) throw std::invalid_argument("fromSingles: size");
    if (!v.empty()) std::memcpy(a.rawData(), v.data(), v.size() * sizeof(float));
    return a;
}

HostArray HostArray::fromComplex(Dims dims, const std::vector<std::complex<double>>& v) {
    HostArray a = createUninitialisedNumeric(std::move(dims), ClassId::Double, true);
    if (a.numberOfElements() != v.size()) throw std::invalid_argument("fromComplex: size");
    if (!v.empty()) std::memcpy(a.rawData(), v.data(), v.size() * sizeof(v[0]));
    return a;
}

HostArray HostArray::fromComplexSingle(Dims dims, const std::vector<std::complex<float>>& v) {
    HostArray a = createUninitialisedNumeric(std::move(dims), ClassId::Single, true);
    if (a.numberOfElements() != v.size()) throw std::invalid_argument("fromComplex: size");
    if (!v.empty()) std::memcpy(a.rawData(), v.data(), v.size() * sizeof(v[0]));
    return a;
}

HostArray HostArray::createCell(std::uint64_t rows, std::uint64_t cols) {
    return createCell(Dims{rows, cols});
}

HostArray HostArray::createCell(Dims dims) {
    auto d = makeData(ClassId::Cell, std::move(dims));
    d->x().items.resize(d->numel);
    return HostArray(std::move(d));
}

HostArray HostArray::cellOf(std::initializer_list<HostArray> items) {
    HostArray c = createCell(1, items.size());
    std::uint64_t k = 0;
    for (const HostArray& a : items) c.setCell(k++, a);
    return c;
}

HostArray HostArray::createStruct(Dims dims, std::vector<std::string> fieldNames) {
    auto d = makeData(ClassId::Struct, std::move(dims));
    d->x().fields = std::move(fieldNames);
    checkedElementCount({d->numel, d->x().fields.size()});
    return HostArray(std::move(d));
}

HostArray HostArray::charRow(std::string_view utf8) {
    std::u16string s;
    // Decode UTF-8 into UTF-16 code units. Malformed input (a stray or missing continuation
    // byte, an overlong form, an encoded surrogate, past U+10FFFF) is the host's text error.
    auto bad = [] { HostError::raise("QUARTZ:string", "InvalidText"); };
    for (std::size_t i = 0; i < utf8.size();) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        std::size_t len = 1;
        std::uint32_t cp = c, least = 0;
        if (c >= 0xF0 && c <= 0xF4) {
            len = 4, cp = c & 0x07u, least = 0x10000;
        } else if (c >= 0xE0 && c < 0xF0) {
            len = 3, cp = c & 0x0Fu, least = 0x800;
        } else if (c >= 0xC2 && c < 0xE0) {
            len = 2, cp = c & 0x1Fu, least = 0x80;
        } else if (c >= 0x80) {
            bad();
        }
        if (len > utf8.size() - i) bad();
        for (std::size_t k = 1; k < len; ++k) {
            const auto b = static_cast<unsigned char>(utf8[i + k]);
            if ((b & 0xC0u) != 0x80u) bad();
            cp = (cp << 6) | (b & 0x3Fu);
        }
        if (cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) bad();
        if (cp >= 0x10000) {
            cp -= 0x10000;
            s.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            s.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            s.push_back(static_cast<char16_t>(cp));
        }
        i += len;
    }
    const std::uint64_t n = s.size();
    return createChar({n == 0 ? 0u : 1u, n}, std::move(s));
}

HostArray HostArray::createChar(Dims dims, std::u16string utf16) {
    auto d = makeData(ClassId::Char, std::move(dims));
    if (d->numel != utf16.size()) throw std::invalid_argument("createChar: size");
    d->x().chars = std::move(utf16);
    d->data = d->x().chars.data();
    return HostArray(std::move(d));
}

HostArray HostArray::stringScalar(std::string_view utf8) {
    return createString({1, 1}, {std::string(utf8)});
}

HostArray HostArray::missingString() { return createString({1, 1}, {std::nullopt}); }

HostArray HostArray::createString(Dims dims, std::vector<std::optional<std::string>> items) {
    auto d = makeData(ClassId::String, std::move(dims));
    if (d->numel != items.size()) throw std::invalid_argument("createString: size");
    d->x().strings = std::move(items);
    return HostArray(std::move(d));
}

HostArray HostArray::object(std::shared_ptr<ObjectValue> value) {
    auto d = makeData(ClassId::Object, {1, 1});
    d->x().object = std::move(value);
    return HostArray(std::move(d));
}

HostArray HostArray::deepCopy() const {
    if (!data_) return {};
    auto d = std::make_shared<ArrayData>();
    d->cls = data_->cls;
    d->complex = data_->complex;
    d->sparse = data_->sparse;
    d->dims = data_->dims;
    d->numel = data_->numel;
    if (data_->extra)
        d->extra = std::make_unique<ArrayExtra>(ArrayExtra{
            {}, {}, data_->extra->fields, {}, data_->extra->strings, data_->extra->object});
    if (isNumericClass(d->cls)) {
        const std::size_t bytes = static_cast<std::size_t>(d->numel) * elementBytes();
        void* p = hostMalloc(bytes);
        if (!p) throwAllocationFailure();
        if (bytes) std::memcpy(p, rawData(), bytes);
        d->owned.reset(p);
        d->data = p;
    } else if (d->cls == ClassId::Char) {
        d->x().chars = data_->ext().chars;
        d->data = d->x().chars.data();
    }
    const std::vector<HostArray>& items = data_->ext().items;
    if (d->cls == ClassId::Struct) {
        // Field slices become arrays of their own.
        const std::uint64_t nf = numberOfFields();
        if (!items.empty() || !data_->ext().columns.empty()) {
            d->x().items.resize(d->numel * nf);
            for (std::uint64_t e = 0; e < d->numel; ++e)
                for (std::uint64_t f = 0; f < nf; ++f)
                    d->x().items[e * nf + f] = getField(e, f).deepCopy();
        }
    } else if (!items.empty()) {
        d->x().items.reserve(items.size());
        for (const HostArray& a : items) d->x().items.push_back(a.deepCopy());
    }
    return HostArray(std::move(d));
}

// ---- inspection --------------------------------------------------------------------------

ClassId HostArray::classId() const noexcept { return data_ ? data_->cls : ClassId::Unknown; }
bool HostArray::isSparse() const noexcept { return data_ && data_->sparse; }
bool HostArray::isComplex() const noexcept { return data_ && data_->complex; }
bool HostArray::isEmpty() const noexcept { return !data_ || data_->numel == 0; }
bool HostArray::isNumeric() const noexcept { return data_ && isNumericClass(data_->cls); }
bool HostArray::isFloat() const noexcept {
    return data_ && (data_->cls == ClassId::Double || data_->cls == ClassId::Single);
}
bool HostArray::isVector2D() const noexcept {
    return data_ && data_->dims.size() == 2 && (data_->dims[0] == 1 || data_->dims[1] == 1);
}
bool HostArray::isReadOnly() const noexcept { return data_ && data_->readOnly; }

std::uint64_t HostArray::numberOfDimensions() const noexcept {
    return data_ ? data_->dims.size() : 2;
}

const Dims& HostArray::dimensions() const noexcept {
    static const Dims empty{0, 0};
    return data_ ? data_->dims : empty;
}

std::uint64_t HostArray::dimension(std::uint64_t k) const noexcept {
    const Dims& d = dimensions();
    return k < d.size() ? d[k] : 1;
}

std::uint64_t HostArray::numberOfElements() const noexcept { return data_ ? data_->numel : 0; }

void* HostArray::rawData() const noexcept {
    return data_ ? static_cast<unsigned char*>(data_->data) + offset_ : nullptr;
}

std::size_t HostArray::elementBytes() const noexcept {
    return data_ ? elementSize(data_->cls) * (data_->complex ? 2 : 1) : 0;
}

void HostArray::setSparse(bool sparse) {
    if (!isNumeric()) throw std::invalid_argument("setSparse: not numeric");
    data_->sparse = sparse;
}

namespace {
double readAs(ClassId cls, const void* p, std::uint64_t k) {
    switch (cls) {
    case ClassId::Double: return static_cast<const double*>(p)[k];
    case ClassId::Single: return static_cast<const float*>(p)[k];
    case ClassId::Int8: return static_cast<const std::int8_t*>(p)[k];
    case ClassId::UInt8:
    case ClassId::Logical: return static_cast<const std::uint8_t*>(p)[k];
    case ClassId::Int16: return static_cast<const std::int16_t*>(p)[k];
    case ClassId::UInt16:
    case ClassId::Char: return static_cast<const std::uint16_t*>(p)[k];
    case ClassId::Int32: return static_cast<const std::int32_t*>(p)[k];
    case ClassId::UInt32: return static_cast<const std::uint32_t*>(p)[k];
    case ClassId::Int64: return static_cast<double>(static_cast<const std::int64_t*>(p)[k]);
    case ClassId::UInt64: return static_cast<double>(static_cast<const std::uint64_t*>(p)[k]);
    default: throw std::invalid_argument("realAt: not numeric");
    }
}
} // namespace

double HostArray::realAt(std::uint64_t k) const {
    if (!data_ || k >= data_->numel) throw std::out_of_range("realAt");
    return readAs(data_->cls, rawData(), data_->complex ? 2 * k : k);
}

double HostArray::imagAt(std::uint64_t k) const {
    if (!data_ || k >= data_->numel) throw std::out_of_range("imagAt");
    return data_->complex ? readAs(data_->cls, rawData(), 2 * k + 1) : 0.0;
}

// ---- cells and structs -------------------------------------------------------------------

HostArray HostArray::getCell(std::uint64_t k) const {
    if (!isCell() || k >= data_->ext().items.size()) throw std::out_of_range("getCell");
    return data_->ext().items[k];
}

void HostArray::setCell(std::uint64_t k, HostArray a) {
    if (!isCell() || k >= data_->ext().items.size()) throw std::out_of_range("setCell");
    data_->x().items[k] = std::move(a);
}

const std::vector<std::string>& HostArray::fieldNames() const {
    if (!isStruct()) throw std::invalid_argument("fieldNames: not a struct");
    return data_->ext().fields;
}

std::uint64_t HostArray::numberOfFields() const { return fieldNames().size(); }

std::optional<std::uint64_t> HostArray::fieldIndex(std::string_view name) const {
    const auto& f = fieldNames();
    for (std::uint64_t i = 0; i < f.size(); ++i)
        if (f[i] == name) return i;
    return std::nullopt;
}

namespace {
std::size_t sliceBytes(const ArrayData& column) {
    return static_cast<std::size_t>(column.numel) * elementSize(column.cls) *
           (column.complex ? 2 : 1);
}

// The record of a field kept as slices, or null when the field's values are in `items`.
const std::shared_ptr<ArrayData>* columnOf(const ArrayExtra& x, std::uint64_t field) {
    return !x.columns.empty() && x.columns[field] ? &x.columns[field] : nullptr;
}
} // namespace

HostArray HostArray::getField(std::uint64_t element, std::uint64_t field) const {
    const std::uint64_t nf = numberOfFields();
    if (element >= data_->numel || field >= nf) throw std::out_of_range("getField");
    const ArrayExtra& x = data_->ext();
    if (const auto* column = columnOf(x, field))
        return HostArray(*column, static_cast<std::size_t>(element) * sliceBytes(**column));
    if (x.items.empty()) return {};
    return x.items[element * nf + field];
}

FieldValueView HostArray::fieldView(std::uint64_t element, std::uint64_t field) const {
    const std::uint64_t nf = numberOfFields();
    if (element >= data_->numel || field >= nf) throw std::out_of_range("fieldView");
    const ArrayExtra& x = data_->ext();
    const ArrayData* d = nullptr;
    std::size_t offset = 0;
    if (const auto* column = columnOf(x, field)) {
        d = column->get();
        offset = static_cast<std::size_t>(element) * sliceBytes(*d);
    } else if (!x.items.empty()) {
        const HostArray& h = x.items[element * nf + field];
        d = h.data_.get();
        offset = h.offset_;
    }
    if (!d) return {};
    return {true,      d->cls,   d->complex,
            d->sparse, d->numel, static_cast<const unsigned char*>(d->data) + offset};
}

HostArray HostArray::slicedField(std::uint64_t field) const {
    if (field >= numberOfFields()) throw std::out_of_range("slicedField");
    const auto* column = columnOf(data_->ext(), field);
    return column ? HostArray(*column) : HostArray();
}

HostArray HostArray::getField(std::uint64_t element, std::string_view name) const {
    auto f = fieldIndex(name);
    if (!f) throw std::out_of_range("getField: no such field");
    return getField(element, *f);
}

void HostArray::setField(std::uint64_t element, std::uint64_t field, HostArray a) {
    const std::uint64_t nf = numberOfFields();
    if (element >= data_->numel || field >= nf) throw std::out_of_range("setField");
    ArrayExtra& x = data_->x();
    if (x.items.empty()) x.items.resize(data_->numel * nf);
    if (columnOf(x, field)) {
        // The other elements keep their slices, now as handles of their own.
        const std::shared_ptr<ArrayData> column = std::move(x.columns[field]);
        const std::size_t bytes = sliceBytes(*column);
        for (std::uint64_t e = 0; e < data_->numel; ++e)
            x.items[e * nf + field] = HostArray(column, static_cast<std::size_t>(e) * bytes);
    }
    x.items[element * nf + field] = std::move(a);
}

void HostArray::setFieldSlices(std::uint64_t field, void* block, const Dims& dims, ClassId cls,
                               bool complex, std::shared_ptr<const void> owner) {
    if (!isNumericClass(cls)) throw std::invalid_argument("setFieldSlices: not a numeric class");
    const std::uint64_t nf = numberOfFields();
    if (field >= nf) throw std::out_of_range("setFieldSlices");
    auto column = makeData(cls, dims);
    column->complex = complex;
    column->data = block;
    column->owner = std::move(owner);
    ArrayExtra& x = data_->x();
    if (x.columns.empty()) x.columns.resize(nf);
    x.columns[field] = std::move(column);
    if (!x.items.empty())
        for (std::uint64_t e = 0; e < data_->numel; ++e)
            x.items[e * nf + field] = HostArray();
}

const std::u16string& HostArray::charData() const {
    if (!isChar()) throw std::invalid_argument("charData: not a char array");
    return data_->ext().chars;
}

const std::optional<std::string>& HostArray::stringAt(std::uint64_t k) const {
    if (!isStringObject() || k >= data_->ext().strings.size()) throw std::out_of_range("stringAt");
    return data_->ext().strings[k];
}

std::shared_ptr<ObjectValue> HostArray::objectValue() const {
    if (!isObject()) throw std::invalid_argument("objectValue: not an object");
    return data_->ext().object;
}

} // namespace platform
