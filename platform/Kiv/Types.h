// Fixed-width unsigned integers used throughout the BGP code. They live in the
// global namespace because wire-level signatures read better with them bare
// (a community is a U32, an extended community a U64).
#pragma once

#include <cstdint>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
