#include "VoBgp/Parse/ExtCommLaidOut.h"

#include <bit>
#include <cmath>
#include <cstring>

#include "Routing/Rib/LinkBandwidth.h"
#include "VoBgp/Parse/ExtCommDerivedForm.h"

namespace Routing::Bgp::ExtCommLaidOutForms {

namespace {

constexpr U64 valueBits = 0xffff'ffff'ffffULL;  // octets 2-7

// "0x" and lower-case hex digits without leading zeros.
void appendHexNumber(VoFmt::TextBuffer& out, U64 value) {
    std::size_t digits = value == 0 ? 1 : (std::bit_width(value) + 3) / 4;
    out.append("0x");
    out.commit(VoFmt::writeHex(out.reserve(digits), value, digits));
}

float floatOf(U64 bits) {
    U32 word = static_cast<U32>(bits);
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

void appendMacAddress(VoFmt::TextBuffer& out, U64 value) {
    for (int octet = 5; octet >= 0; --octet) {
        out.appendHex2(static_cast<U8>(value >> (8 * octet)));
        if (octet != 0)
            out.append(':');
    }
}

// The rate in the UI: the bandwidth library's text for bytes, the float
// with its unit for packets; "invalid" for what no rate can be.
void appendUiRate(VoFmt::TextBuffer& out, ExtCommFieldFormat format, float rate) {
    if (format == ExtCommFieldFormat::rateBytes) {
        Rib::LinkBandwidth(rate).formatTo(out, false);
    } else if (!std::isfinite(rate) || rate < 0) {
        out.append("invalid");
    } else {
        appendDefaultFloat(out, rate);
        out.append(" pps");
    }
}

std::string_view nameText(ExtCommFieldName const& name, bool ui) {
    return ui ? name.uiText : name.shortText;
}

void appendFlags(VoFmt::TextBuffer& out, ExtCommField const& field, U64 value, bool ui) {
    bool first = true;
    auto separate = [&] {
        if (!first)
            out.append(',');
        first = false;
    };
    for (ExtCommFieldName const& name : field.names) {
        if ((value & name.value) == name.value) {
            separate();
            out.append(nameText(name, ui));
            value &= ~name.value;
        }
    }
    if (value != 0) {
        separate();
        appendHexNumber(out, value);
    }
}

// Whether the field prints at all: zero reserved bits and empty flag sets
// without a none text are left out.
bool shows(ExtCommField const& field, U64 value) {
    switch (field.format) {
        case ExtCommFieldFormat::reserved:
            return value != 0;
        case ExtCommFieldFormat::flags:
            return value != 0 || !field.none.shortText.empty();
        default:
            return true;
    }
}

void appendField(VoFmt::TextBuffer& out, ExtCommField const& field, U64 value, bool ui,
                 bool asdot) {
    switch (field.format) {
        case ExtCommFieldFormat::decimal:
            out.appendDecimal(value);
            return;
        case ExtCommFieldFormat::asNumber:
            out.appendAsNumber(static_cast<U32>(value), asdot);
            return;
        case ExtCommFieldFormat::ipv4Address:
            out.appendIpv4Address(static_cast<U32>(value));
            return;
        case ExtCommFieldFormat::macAddress:
            appendMacAddress(out, value);
            return;
        case ExtCommFieldFormat::rateBytes:
        case ExtCommFieldFormat::ratePackets:
            if (ui)
                appendUiRate(out, field.format, floatOf(value));
            else
                appendDefaultFloat(out, floatOf(value));
            return;
        case ExtCommFieldFormat::flags:
            if (value == 0)
                out.append(nameText(field.none, ui));
            else
                appendFlags(out, field, value, ui);
            return;
        case ExtCommFieldFormat::choice:
            for (ExtCommFieldName const& name : field.names) {
                if (name.value == value) {
                    out.append(nameText(name, ui));
                    return;
                }
            }
            out.appendDecimal(value);
            return;
        case ExtCommFieldFormat::reserved:
            // In place, not shifted: the mask may have holes.
            out.append(ui ? "reserved=" : "rsv=");
            appendHexNumber(out, value << std::countr_zero(field.mask));
            return;
    }
}

// The fields that show, each after `separator` but the first after `lead`.
void appendFields(VoFmt::TextBuffer& out, ExtCommContent content, ExtCommLayout const& layout,
                  char lead, bool ui, bool asdot) {
    char separator = lead;
    for (ExtCommField const& field : layout.fields) {
        U64 value = fieldValue(content, field);
        if (!shows(field, value))
            continue;
        if (separator != '\0')
            out.append(separator);
        separator = ':';
        appendField(out, field, value, ui, asdot);
    }
}

}  // namespace

U64 fieldValue(ExtCommContent content, ExtCommField const& field) {
    return (content.value() & valueBits & field.mask) >> std::countr_zero(field.mask);
}

void policy(VoFmt::TextBuffer& out, ExtCommContent content, ExtComm::StrepFormat format,
            ExtCommLayout const& layout) {
    bool asdot = format.strepFormatAsdot();
    if (!format.strepFormatClassification()) {
        appendFields(out, content, layout, '\0', false, asdot);
        return;
    }
    bool ui = format.strepFormatUI();
    out.append(ui ? layout.uiWord : layout.shortWord);
    appendFields(out, content, layout, ':', ui, asdot);
}

void derived(std::ostream& os, ExtCommContent content, ExtCommLayout const& layout) {
    ExtCommDerivedBuffer text;
    text.append('<');
    text.append(layout.derivedWord);
    appendFields(text, content, layout, ' ', false, false);
    text.append(' ');
    finishExtCommDerived(os, text, content);
}

}  // namespace Routing::Bgp::ExtCommLaidOutForms
