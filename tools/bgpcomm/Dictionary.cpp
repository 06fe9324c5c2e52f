#include "bgpcomm/Dictionary.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include "Kiv/Assert.h"

namespace Bgpcomm {

namespace {

bool readFile(std::filesystem::path const& path, std::string* out) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream text;
    text << in.rdbuf();
    *out = text.str();
    return !in.bad();
}

// "as1299.txt" -> 1299.
std::optional<U32> fileAsn(std::string const& name) {
    if (name.size() < 7 || name.rfind("as", 0) != 0 || name.substr(name.size() - 4) != ".txt")
        return std::nullopt;
    std::string digits = name.substr(2, name.size() - 6);
    if (digits.empty() || digits.size() > 10 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    U64 value = std::stoull(digits);
    if (value > 0xFFFFFFFFull)
        return std::nullopt;
    return static_cast<U32>(value);
}

auto rank(Dictionary::Entry const* e) {
    return std::make_tuple(e->pattern.precedence(), e->folder, e->pattern.breadth(), e->order);
}

}  // namespace

void Dictionary::loadFolder(std::string const& dir, Problem const& problem) {
    namespace fs = std::filesystem;
    std::error_code error;
    std::vector<std::string> names;
    for (auto const& item : fs::directory_iterator(dir, error)) {
        std::string name = item.path().filename().string();
        if (name.size() > 4 && name.substr(name.size() - 4) == ".txt")
            names.push_back(name);
    }
    if (error) {
        problem(dir + ": cannot read the folder: " + error.message());
        return;
    }
    // Files that are not one AS's come first: general meanings (the
    // well-known values) before one network's use of the same value.
    std::sort(names.begin(), names.end(), [](std::string const& a, std::string const& b) {
        bool const asA = fileAsn(a).has_value(), asB = fileAsn(b).has_value();
        return asA != asB ? asB : a < b;
    });
    // Each file's text, a link (a one-line file naming its target in this
    // folder) replaced by its target; targets are read only through links.
    std::vector<std::pair<std::string, std::string>> texts;
    std::vector<std::string> targets;
    for (std::string const& name : names) {
        std::string text;
        if (!readFile(fs::path(dir) / name, &text)) {
            problem((fs::path(dir) / name).string() + ": cannot read; file skipped");
            text.clear();
        }
        std::string_view target = trim(text);
        if (!target.empty() && target.find_first_of(",\n/") == std::string_view::npos &&
            fs::is_regular_file(fs::path(dir) / std::string(target), error)) {
            targets.emplace_back(target);
            if (!readFile(fs::path(dir) / std::string(target), &text)) {
                problem((fs::path(dir) / std::string(target)).string() +
                        ": cannot read; file skipped");
                text.clear();
            }
        }
        texts.emplace_back(name, std::move(text));
    }
    for (auto const& [name, text] : texts) {
        if (std::find(targets.begin(), targets.end(), name) == targets.end())
            addText((fs::path(dir) / name).string(), text, fileAsn(name), problem);
    }
    nextFolder();
}

void Dictionary::addText(std::string const& name, std::string_view text, std::optional<U32> asn,
                         Problem const& problem) {
    indexed_ = false;
    std::size_t lineNo = 0;
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        ++lineNo;
        ++order_;
        line = trim(line);
        if (line.empty() || line.front() == '#')
            continue;
        auto report = [&](std::string const& what) {
            problem(name + ": line " + std::to_string(lineNo) + ": " + what + "; line skipped");
        };
        std::size_t comma = line.find(',');
        if (comma == std::string_view::npos) {
            report("no comma between community and description");
            continue;
        }
        std::string key(trim(line.substr(0, comma)));
        if (auto at = key.find("<ASN>"); at != std::string::npos) {
            if (!asn) {
                report("<ASN> in a file whose name gives no AS number");
                continue;
            }
            key.replace(at, 5, std::to_string(*asn));
        }
        Entry entry;
        if (auto bad = parseCommPattern(key, &entry.pattern)) {
            report(*bad);
            continue;
        }
        entry.description = std::string(trim(line.substr(comma + 1)));
        entry.folder = folder_;
        entry.order = order_;
        entries_.push_back(std::move(entry));
    }
}

bool Dictionary::better(Entry const* a, Entry const* b) const {
    return rank(a) < rank(b);
}

void Dictionary::finish() {
    exact_.clear();
    byFirst_.clear();
    for (auto& list : anyFirst_)
        list.clear();
    std::vector<Entry const*> sorted;
    sorted.reserve(entries_.size());
    for (Entry const& entry : entries_)
        sorted.push_back(&entry);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [this](Entry const* a, Entry const* b) { return better(a, b); });
    for (Entry const* entry : sorted) {
        CommPattern const& p = entry->pattern;
        if (p.precedence() == Precedence::exact) {
            exact_.emplace(p.exactKey(), entry);  // the first (best) stays
        } else if (!p.field[0].glob && p.field[0].low == p.field[0].high) {
            byFirst_[CommKey{p.kind, p.fieldCount, {p.field[0].low, 0, 0}}].push_back(entry);
        } else {
            Bounded bounded{0, 0, entry};
            p.bounds(0, &bounded.low, &bounded.high);
            anyFirst_[static_cast<unsigned>(p.kind)].push_back(bounded);
        }
    }
    indexed_ = true;
}

Dictionary::Entry const* Dictionary::lookup(CommKey const& key) const {
    KIV_ASSERT(indexed_, "Dictionary::finish before lookups");
    if (auto hit = exact_.find(key); hit != exact_.end())
        return hit->second;
    Entry const* best = nullptr;
    auto firstMatch = [&](std::vector<Entry const*> const& list) {
        for (Entry const* entry : list) {
            if (entry->pattern.matches(key)) {
                if (!best || better(entry, best))
                    best = entry;
                return;
            }
        }
    };
    if (auto list = byFirst_.find(CommKey{key.kind, key.fieldCount, {key.field[0], 0, 0}});
        list != byFirst_.end())
        firstMatch(list->second);
    for (Bounded const& b : anyFirst_[static_cast<unsigned>(key.kind)]) {
        if (key.field[0] < b.low || key.field[0] > b.high || !b.entry->pattern.matches(key))
            continue;
        if (!best || better(b.entry, best))
            best = b.entry;
        break;
    }
    return best;
}

std::string Dictionary::describe(Entry const& entry, CommKey const& key) const {
    std::string const& text = entry.description;
    if (text.find('$') == std::string::npos)
        return text;
    std::vector<std::string> captures;
    entry.pattern.matches(key, &captures);
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '$' && i + 1 < text.size() &&
            std::isdigit(static_cast<unsigned char>(text[i + 1]))) {
            std::size_t j = i + 1;
            std::size_t n = 0;
            while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j])))
                n = n * 10 + std::size_t(text[j++] - '0');
            if (n < captures.size()) {
                out += captures[n];
                i = j - 1;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

std::string shippedDictionaryFolder() {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path exe = fs::read_symlink("/proc/self/exe", error);
    if (!error) {
        fs::path installed =
            exe.parent_path().parent_path() / "share/bgpcomm/dictionaries/nlnog/communities";
        if (fs::is_directory(installed, error))
            return installed.string();
    }
#ifdef BGPCOMM_SOURCE_DICTIONARY
    if (fs::is_directory(BGPCOMM_SOURCE_DICTIONARY, error))
        return BGPCOMM_SOURCE_DICTIONARY;
#endif
    return {};
}

}  // namespace Bgpcomm
