#include "Kiv/DenseBoolSet.h"

#include "Kiv/Errors.h"
#include "Kiv/ValueText.h"

namespace Kiv::DenseBoolSetDetail {

void throwRange(std::string_view typeName, unsigned value, std::size_t flags) {
    throw DenseBoolSetRangeError(std::string(typeName) + ": " + std::to_string(value) +
                                 " has bits beyond its " + std::to_string(flags) + " flags");
}

std::string toStrep(std::string_view typeName, std::string_view const* names, std::size_t count,
                    U8 bits) {
    ValueFormatter f(typeName);
    for (std::size_t i = 0; i < count; ++i)
        f.attr(names[i], boolText((bits >> i) & 1u));
    return f.str();
}

U8 parse(String::IteratorConst& it, String::IteratorConst end, std::string_view typeName,
         std::string_view const* names, std::size_t count) {
    ValueParser p(it, end, typeName);
    unsigned bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        p.attr(names[i]);
        if (p.readBool())
            bits |= 1u << i;
    }
    p.close();
    return static_cast<U8>(bits);
}

}  // namespace Kiv::DenseBoolSetDetail
