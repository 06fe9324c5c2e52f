// Community filters of `bgpcomm mrt` on a whole synthetic table: the cost of
// a --count run with a filter against the same run without one, measured in
// the same process. Filters are evaluated once per distinct interned list, so
// a filtered run should cost little more than the interning every run does.
//
//   filter/none          bgpcomm mrt --count
//   filter/match         --match '(^| )174:'         (standard list regex)
//   filter/matchExt      --kind extended --match '^RT:6[0-9]'
//   filter/has           --has '174:*'
//   filter/hasAnyNot     --has-any 'rt 65000:*' --has-any '*:0:*' --has-not no-export
//   filter/<f>/kept      none, match, has with --stats instead of --count
//
// A --count run without filters frees each route's lists when the next route
// replaces them, so its interning tables stay nearly empty; a filter's memo
// keeps every list it has seen (it must, so that an address is not reused),
// as --stats and a real RIB do. The kept variants compare runs whose tables
// hold the same lists.
//
// Routes: 1,000,000 (`bgpcomm synth --seed 1`); VOBGP_FILTER_ROUTES=N for
// fewer. Each iteration reads the whole table from memory into fresh tables.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bgpcomm/MrtCommand.h"
#include "bgpcomm/Synth.h"

namespace {

std::vector<U8> const& table() {
    static std::vector<U8> const bytes = [] {
        Bgpcomm::SynthOptions options;
        char const* routes = std::getenv("VOBGP_FILTER_ROUTES");
        options.routes = routes ? std::strtoull(routes, nullptr, 10) : 1000000;
        options.seed = 1;
        return Bgpcomm::synthesizeToMemory(options);
    }();
    return bytes;
}

void runFiltered(benchmark::State& state, std::vector<std::string> filter, bool keep = false) {
    std::vector<U8> const& bytes = table();
    std::FILE* devnull = std::fopen("/dev/null", "w");
    U64 matched = 0;
    for (auto _ : state) {
        std::vector<std::string> args = filter;
        args.insert(args.end(), {keep ? "--stats" : "--count", "--no-progress", "memory"});
        Bgpcomm::MrtOptions options;
        if (auto problem = Bgpcomm::parseMrtOptions(args, &options)) {
            state.SkipWithError(problem->c_str());
            break;
        }
        Bgpcomm::MrtRun run(std::move(options), devnull);
        auto source = Bgpcomm::openSource(Bgpcomm::RawInput::fromMemory(bytes));
        run.source("memory", *source);
        matched = run.counts().routesMatched;
        benchmark::DoNotOptimize(run.finish());
    }
    std::fclose(devnull);
    state.counters["matched"] = double(matched);
}

void none(benchmark::State& state) {
    runFiltered(state, {});
}
void match(benchmark::State& state) {
    runFiltered(state, {"--match", "(^| )174:"});
}
void matchExt(benchmark::State& state) {
    runFiltered(state, {"--kind", "extended", "--match", "^RT:6[0-9]"});
}
void has(benchmark::State& state) {
    runFiltered(state, {"--has", "174:*"});
}
void hasAnyNot(benchmark::State& state) {
    runFiltered(state, {"--has-any", "rt 65000:*", "--has-any", "*:0:*", "--has-not", "no-export"});
}

// With --stats every route keeps its lists, as a RIB does: the interning
// tables then hold every distinct list in both runs, and the difference is
// the filters' own.
void noneKept(benchmark::State& state) {
    runFiltered(state, {}, true);
}
void matchKept(benchmark::State& state) {
    runFiltered(state, {"--match", "(^| )174:"}, true);
}
void hasKept(benchmark::State& state) {
    runFiltered(state, {"--has", "174:*"}, true);
}

}  // namespace

BENCHMARK(noneKept)->Name("filter/none/kept")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(matchKept)->Name("filter/match/kept")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(hasKept)->Name("filter/has/kept")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(none)->Name("filter/none")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(match)->Name("filter/match")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(matchExt)->Name("filter/matchExt")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(has)->Name("filter/has")->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(hasAnyNot)->Name("filter/hasAnyNot")->Unit(benchmark::kMillisecond)->Iterations(3);
