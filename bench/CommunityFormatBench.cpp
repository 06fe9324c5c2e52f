// Formatting one community at a time, as list printers and policy matching
// do: the formatters against the obvious ostringstream version.
#include <benchmark/benchmark.h>

#include <array>
#include <sstream>
#include <string>

#include "VoBgp/VoBgpCommunityListImpl.h"
#include "VoFmt/StackBackedBuffer.h"

namespace {

using namespace Routing::Bgp;

// A mix of short, long and well-known values.
constexpr std::array<U32, 8> kComms = {0x00010002u, 0xFFFFFF01u, 0xFDE80064u, 0x00000000u,
                                       0xFFFFFFFFu, 0x000A0001u, 0xFFFF0006u, 0x12345678u};

std::array<Acl::CommunityValue, 4> const kLarge = {
    Acl::CommunityValue{65000, 1, 2}, Acl::CommunityValue{4200000000u, 100, 200},
    Acl::CommunityValue{65536, 4294967295u, 0}, Acl::CommunityValue{1, 1, 1}};

void standardIntoBuffer(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        VoFmt::StackBackedBuffer<20> buffer;
        CommunityFormatter<true>::format(buffer, kComms[i++ % kComms.size()]);
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(standardIntoBuffer);

void standardKivString(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        Kiv::String s = CommunityFormatter<false>::kivString(kComms[i++ % kComms.size()]);
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(standardKivString);

void standardOstringstream(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        U32 const comm = kComms[i++ % kComms.size()];
        std::ostringstream os;
        std::string_view const name = wellKnownCommunityName(comm);
        if (!name.empty())
            os << name;
        else
            os << (comm >> 16) << ':' << (comm & 0xFFFF);
        std::string s = os.str();
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(standardOstringstream);

void largeIntoBuffer(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        VoFmt::StackBackedBuffer<42> buffer;
        LargeCommunityFormatter::format(buffer, kLarge[i++ % kLarge.size()], true);
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(largeIntoBuffer);

void largeKivString(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        Kiv::String s = LargeCommunityFormatter::kivString(kLarge[i++ % kLarge.size()], true);
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(largeKivString);

void largeOstringstream(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        Acl::CommunityValue const& v = kLarge[i++ % kLarge.size()];
        std::ostringstream os;
        if (v.globalAdmin() > 0xFFFF)
            os << (v.globalAdmin() >> 16) << '.' << (v.globalAdmin() & 0xFFFF);
        else
            os << v.globalAdmin();
        os << ':' << v.localData1() << ':' << v.localData2();
        std::string s = os.str();
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(largeOstringstream);

}  // namespace
