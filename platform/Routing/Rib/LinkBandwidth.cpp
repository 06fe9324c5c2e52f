#include "Routing/Rib/LinkBandwidth.h"

#include <cmath>
#include <cstdio>
#include <string_view>

namespace Routing::Rib {

namespace {

// Appends `value` through a printf conversion; the longest text (a float's
// maximum in Tbps with two decimals) is well below the scratch size.
void appendPrintf(VoFmt::TextBuffer& out, char const* format, double value, bool trimDecimals) {
    char scratch[64];
    int n = std::snprintf(scratch, sizeof scratch, format, value);
    std::string_view text(scratch, n > 0 ? static_cast<std::size_t>(n) : 0);
    if (trimDecimals && text.find('.') != std::string_view::npos) {
        while (text.back() == '0')
            text.remove_suffix(1);
        if (text.back() == '.')
            text.remove_suffix(1);
    }
    out.append(text);
}

constexpr std::string_view kUnits[] = {"bps", "Kbps", "Mbps", "Gbps", "Tbps"};
constexpr std::size_t kUnitCount = sizeof kUnits / sizeof kUnits[0];

// Above this a value could print as "1000" of its unit after rounding to two
// decimals, so it is shown in the next unit instead.
constexpr double kNextUnitAt = 999.995;

}  // namespace

bool LinkBandwidth::isValid() const {
    return std::isfinite(bytesPerSecond_) && bytesPerSecond_ >= 0;
}

void LinkBandwidth::formatTo(VoFmt::TextBuffer& out, bool weighted) const {
    if (!isValid()) {
        out.append("invalid");
        return;
    }
    // Adding +0 turns a received -0 into 0, so it never prints a sign.
    if (weighted) {
        double weight = double(bytesPerSecond_) + 0.0;
        if (weight == std::floor(weight) && weight < 1e15)
            out.appendDecimal(static_cast<U64>(weight));
        else
            appendPrintf(out, "%g", weight, false);
        return;
    }
    double scaled = bitsPerSecond() + 0.0;
    std::size_t unit = 0;
    while (unit + 1 < kUnitCount && scaled >= kNextUnitAt) {
        scaled /= 1000;
        ++unit;
    }
    appendPrintf(out, "%.2f", scaled, true);
    out.append(' ');
    out.append(kUnits[unit]);
}

Kiv::String LinkBandwidth::toStrep(bool weighted) const {
    VoFmt::StackBackedBuffer<48> buffer;
    formatTo(buffer, weighted);
    return buffer.kivString();
}

}  // namespace Routing::Rib
