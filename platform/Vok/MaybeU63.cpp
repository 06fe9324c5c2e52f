#include "Vok/MaybeU63.h"

#include <charconv>
#include <ostream>
#include <string>

#include "Kiv/ValueText.h"

namespace Vok {

namespace {

// Writes the text form into `buf` (at least 20 characters) and returns its end.
char* format(MaybeU63 const& v, char* buf, char* bufEnd) {
    if (v.isUnspecified()) {
        *buf = '-';
        return buf + 1;
    }
    return std::to_chars(buf, bufEnd, v.value).ptr;
}

}  // namespace

Kiv::String valueToStrep(MaybeU63 const& v) {
    char buf[20];
    char* end = format(v, buf, buf + sizeof buf);
    return Kiv::String(buf, static_cast<std::size_t>(end - buf));
}

std::ostream& operator<<(std::ostream& os, MaybeU63 const& v) {
    // Written as characters so that the stream's base and width flags, set for
    // whatever was printed before, cannot change the form.
    char buf[20];
    char* end = format(v, buf, buf + sizeof buf);
    return os.write(buf, end - buf);
}

void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     MaybeU63* out) {
    if (it != end && *it == '-') {
        ++it;
        out->value = MaybeU63::unspecifiedWord;
        return;
    }
    Kiv::String::IteratorConst start = it;
    U64 parsed = Kiv::parseUnsigned(it, end);
    if (parsed & MaybeU63::unspecifiedBit) {
        it = start;
        throw Kiv::RangeError(std::to_string(parsed) + " does not fit 63 bits");
    }
    out->value = parsed;
}

namespace MaybeU63Detail {
void throwTrailingText(Kiv::String::IteratorConst it, Kiv::String::IteratorConst end) {
    throw Kiv::ParseError("unexpected text \"" + std::string(it, end) + "\" after value");
}
}  // namespace MaybeU63Detail

}  // namespace Vok
