#include "support/Bits.hpp"

namespace testsupport {

std::string hexfloat(double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%a (%.17g)", v, v);
    return buf;
}

} // namespace testsupport
