#include "bgpcomm/CommOptions.h"

#include <cstdio>

namespace Bgpcomm {

char const* const communityOptionsHelp =
    "  --has VALUE             the route carries VALUE; 'A|B': A or B; repeatable:\n"
    "                          all. VALUE: a:b, a:b:c, rt a:b, soo a:b with\n"
    "                          positional wildcards (* or nnn any value, x one\n"
    "                          digit, a-b range: '1299:*' never matches 1403:1299),\n"
    "                          a well-known name (no-export, blackhole), an extended\n"
    "                          text as printed (Route-Target-AS:65000:100) or as\n"
    "                          policy sees it (RT:65000:*), or 0x and 16 hex digits\n"
    "  --has-any VALUE         repeatable: the route carries at least one of them\n"
    "  --has-not VALUE         repeatable: the route carries none of them\n"
    "  --has-meaning REGEX     a community's well-known name or dictionary\n"
    "                          description matches REGEX (case-insensitive),\n"
    "                          e.g. 'blackhole|prepend'\n"
    "  --dictionary DIR        community descriptions from a folder of NLNOG-style\n"
    "                          as<N>.txt files; repeatable, first wins; read before\n"
    "                          the shipped NLNOG copy\n"
    "  --no-dictionary         not the shipped NLNOG copy (only --dictionary ones)\n";

bool isCommunityValueOption(std::string const& arg) {
    return arg == "--has" || arg == "--has-any" || arg == "--has-not" || arg == "--has-meaning" ||
           arg == "--dictionary";
}

std::optional<std::string> communityOption(std::string const& arg, std::string const& value,
                                           MrtOptions* out) {
    CommFilter& filter = out->filter.comm;
    if (arg == "--dictionary") {
        out->dictionaries.push_back(value);
        return std::nullopt;
    }
    if (arg == "--has-meaning") {
        if (auto problem = filter.meaningIs(value))
            return "bad regular expression: " + *problem;
        return std::nullopt;
    }
    HasGroup group = arg == "--has"       ? HasGroup::all
                     : arg == "--has-any" ? HasGroup::any
                                          : HasGroup::none;
    if (auto problem = filter.hasIs(group, value))
        return arg + ": " + *problem;
    return std::nullopt;
}

std::unique_ptr<Dictionary> loadDictionaries(MrtOptions const& options) {
    std::vector<std::string> folders = options.dictionaries;
    if (!options.noDictionary) {
        std::string shipped = shippedDictionaryFolder();
        if (!shipped.empty())
            folders.push_back(shipped);
    }
    if (folders.empty())
        return nullptr;
    auto dictionary = std::make_unique<Dictionary>();
    auto problem = [](std::string const& text) {
        std::fprintf(stderr, "bgpcomm: dictionary %s\n", text.c_str());
    };
    for (std::string const& folder : folders)
        dictionary->loadFolder(folder, problem);
    dictionary->finish();
    return dictionary;
}

}  // namespace Bgpcomm
