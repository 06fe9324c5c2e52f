#include "bgpcomm/HasFilter.h"

#include <cctype>

#include "Kiv/Errors.h"
#include "bgpcomm/WellKnown.h"
#include "bgpcomm/WordSet.h"

namespace Bgpcomm {

using namespace Routing::Bgp;

namespace {

// The values the library itself names (its named text form).
constexpr U32 libraryNamed[] = {0x00000000u, 0xFFFFFF01u, 0xFFFFFF02u, 0xFFFFFF03u,
                                0xFFFF0000u, 0xFFFF0006u, 0xFFFF0007u};

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

std::optional<U32> namedValue(std::string_view name) {
    for (U32 value : libraryNamed)
        if (sameIgnoringCase(CommList::wellKnownName(value).view(), name))
            return value;
    return wellKnownByName(name);
}

// Case-insensitive glob: '*' is one or more characters other than ':'.
bool textGlob(std::string_view pat, std::string_view text) {
    if (pat.empty())
        return text.empty();
    if (pat.front() == '*') {
        for (std::size_t n = 1; n <= text.size() && text[n - 1] != ':'; ++n)
            if (textGlob(pat.substr(1), text.substr(n)))
                return true;
        return false;
    }
    return !text.empty() &&
           std::tolower(static_cast<unsigned char>(pat.front())) ==
               std::tolower(static_cast<unsigned char>(text.front())) &&
           textGlob(pat.substr(1), text.substr(1));
}

struct Alt {
    enum class Type { pattern, text, hex } type = Type::pattern;
    CommPattern pattern;
    std::string text;
    U64 hex = 0;
};

std::optional<std::string> parseAlt(std::string_view text, Alt* out) {
    text = trim(text);
    std::string const shown(text);
    if ((text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) && text.size() == 18) {
        U64 value = 0;
        for (char c : text.substr(2)) {
            if (!std::isxdigit(static_cast<unsigned char>(c)))
                return "bad hex value '" + shown + "'";
            value = value << 4 | U64(std::isdigit(static_cast<unsigned char>(c))
                                         ? c - '0'
                                         : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10);
        }
        out->type = Alt::Type::hex;
        out->hex = value;
        return std::nullopt;
    }
    if (auto value = namedValue(text)) {
        out->pattern = CommPattern{};
        for (unsigned i = 0; i < 2; ++i) {
            U32 f = i == 0 ? *value >> 16 : *value & 0xFFFF;
            out->pattern.field[i].low = out->pattern.field[i].high = f;
        }
        return std::nullopt;
    }
    auto problem = parseCommPattern(text, &out->pattern);
    if (!problem)
        return std::nullopt;
    // Any extended text form: "rt X" and "soo X" read as the policy words.
    std::string form(text);
    for (auto [label, word] : {std::pair{"rt ", "RT:"}, std::pair{"soo ", "SoO:"}})
        if (form.size() > 4 &&
            sameIgnoringCase(std::string_view(form).substr(0, std::string_view(label).size()),
                             label))
            form = word +
                   std::string(trim(std::string_view(form).substr(std::string_view(label).size())));
    bool letter = false;
    for (char c : form)
        letter |= std::isalpha(static_cast<unsigned char>(c)) != 0;
    if (!letter || form.find(':') == std::string::npos)
        return "cannot read '" + shown + "' as a community: " + *problem;
    out->type = Alt::Type::text;
    out->text = form;
    return std::nullopt;
}

}  // namespace

struct CommFilter::Term {
    enum class Type { has, match, meaning } type = Type::has;
    CommKind kind = CommKind::standard;  // match
    std::unique_ptr<Routing::RouteMap::PosixRegex> regex;
    regex_t meaning{};
    bool meaningCompiled = false;
    std::vector<Alt> alts;
    unsigned kinds = 0;  // bit per CommKind the term looks at

    ~Term() {
        if (meaningCompiled)
            regfree(&meaning);
    }
};

namespace {

// List address -> term bits: a route costs one probe sequence in one array
// per kind. `held` keeps every list in the table alive.
struct AddressMemo {
    WordMap<void const*, U64> bits;
    std::vector<RouteComms> held;
};

void const* listAddress(RouteComms const& comms, CommKind kind, RouteComms* only) {
    switch (kind) {
        case CommKind::standard:
            if (only)
                only->standard = comms.standard;
            return comms.standard.ptr();
        case CommKind::large:
            if (only)
                only->large = comms.large;
            return comms.large.ptr();
        case CommKind::extended:
            if (only)
                only->extended = comms.extended;
            return comms.extended.ptr();
        case CommKind::ipv6:
            if (only)
                only->ipv6 = comms.ipv6;
            return comms.ipv6.ptr();
    }
    return nullptr;
}

}  // namespace

struct CommFilter::Memo {
    std::mutex mutex;
    AddressMemo lists[commKindCount];
};

CommFilter::CommFilter() : memo_(std::make_unique<Memo>()) {}
CommFilter::~CommFilter() = default;
CommFilter::CommFilter(CommFilter&&) noexcept = default;
CommFilter& CommFilter::operator=(CommFilter&&) noexcept = default;

std::optional<std::string> CommFilter::matchIs(CommKind kind, std::string const& pattern) {
    if (terms_.size() >= 64)
        return std::string("more than 64 community filters");
    auto term = std::make_unique<Term>();
    term->type = Term::Type::match;
    term->kind = kind;
    try {
        term->regex = std::make_unique<Routing::RouteMap::PosixRegex>(pattern);
    } catch (Kiv::ParseError const& error) {
        return std::string(error.what());
    }
    term->kinds = 1u << static_cast<unsigned>(kind);
    allMask_ |= U64(1) << terms_.size();
    kinds_ |= term->kinds;
    terms_.push_back(std::move(term));
    return std::nullopt;
}

std::optional<std::string> CommFilter::hasIs(HasGroup group, std::string const& values) {
    if (terms_.size() >= 64)
        return std::string("more than 64 community filters");
    auto term = std::make_unique<Term>();
    std::string_view rest(values);
    while (true) {
        std::size_t bar = rest.find('|');
        Alt alt;
        if (auto problem = parseAlt(rest.substr(0, bar), &alt))
            return problem;
        if (alt.type != Alt::Type::pattern)
            term->kinds |= 1u << unsigned(CommKind::extended);
        else if (alt.pattern.kind == KeyKind::standard)
            term->kinds |= 1u << unsigned(CommKind::standard);
        else if (alt.pattern.kind == KeyKind::large)
            term->kinds |= 1u << unsigned(CommKind::large);
        else
            term->kinds |= 1u << unsigned(CommKind::extended);
        term->alts.push_back(std::move(alt));
        if (bar == std::string_view::npos)
            break;
        rest = rest.substr(bar + 1);
    }
    U64 const bit = U64(1) << terms_.size();
    (group == HasGroup::all ? allMask_ : group == HasGroup::any ? anyMask_ : noneMask_) |= bit;
    kinds_ |= term->kinds;
    terms_.push_back(std::move(term));
    return std::nullopt;
}

std::optional<std::string> CommFilter::meaningIs(std::string const& pattern) {
    if (terms_.size() >= 64)
        return std::string("more than 64 community filters");
    auto term = std::make_unique<Term>();
    term->type = Term::Type::meaning;
    int status = regcomp(&term->meaning, pattern.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB);
    if (status != 0) {
        char message[256];
        regerror(status, &term->meaning, message, sizeof message);
        return std::string(message) + " in regular expression '" + pattern + "'";
    }
    term->meaningCompiled = true;
    term->kinds = 1u << unsigned(CommKind::standard) | 1u << unsigned(CommKind::large) |
                  1u << unsigned(CommKind::extended);
    allMask_ |= U64(1) << terms_.size();
    kinds_ |= term->kinds;
    terms_.push_back(std::move(term));
    return std::nullopt;
}

bool CommFilter::needsNotes() const {
    for (auto const& term : terms_)
        if (term->type == Term::Type::meaning)
            return true;
    return false;
}

U64 CommFilter::evaluate(RouteComms const& one, CommKind kind, Ingest const& ingest) const {
    ++evaluations_;
    U64 bits = 0;
    for (std::size_t t = 0; t < terms_.size(); ++t) {
        Term const& term = *terms_[t];
        if (!(term.kinds & (1u << static_cast<unsigned>(kind))))
            continue;
        bool yes = false;
        switch (term.type) {
            case Term::Type::match:
                yes = ingest.matches(one, kind, term.regex.get());
                break;
            case Term::Type::meaning:
                forEachKey(one, kind, [&](CommKey const* key, U32 value) {
                    if (yes || !key || !notes_)
                        return;
                    std::string note = notes_->note(key, value);
                    yes = !note.empty() && regexec(&term.meaning, note.c_str(), 0, nullptr, 0) == 0;
                });
                break;
            case Term::Type::has:
                forEachKey(one, kind, [&](CommKey const* key, U32) {
                    for (Alt const& alt : term.alts)
                        yes = yes ||
                              (key && alt.type == Alt::Type::pattern && alt.pattern.matches(*key));
                });
                if (!yes && kind == CommKind::extended && one.extended) {
                    ExtComm::StrepFormat plain, classified;
                    plain.set(ExtComm::StrepFormat::strepFormatDefaultBit, true);
                    classified.set(ExtComm::StrepFormat::strepFormatClassificationBit, true);
                    for (ExtComm::PtrConst const& comm : *one.extended->commVectorRawPtr()) {
                        for (Alt const& alt : term.alts) {
                            if (alt.type == Alt::Type::hex)
                                yes = yes || comm->community() == alt.hex;
                            if (alt.type != Alt::Type::text || yes)
                                continue;
                            for (Kiv::String const& form :
                                 {comm->toStrepForPolicy(plain), comm->toStrepForPolicy(classified),
                                  comm->toStrepForUI(), comm->toStrepForUI(true)})
                                yes = yes || textGlob(alt.text, form.view());
                        }
                    }
                }
                break;
        }
        if (yes)
            bits |= U64(1) << t;
    }
    return bits;
}

bool CommFilter::passes(RouteComms const& comms, Ingest const& ingest) const {
    if (terms_.empty())
        return true;
    U64 bits = 0;
    std::unique_lock<std::mutex> lock(memo_->mutex, std::defer_lock);
    if (!oneThread_)
        lock.lock();
    for (unsigned k = 0; k < commKindCount; ++k) {
        if (!(kinds_ & (1u << k)))
            continue;
        auto const kind = static_cast<CommKind>(k);
        AddressMemo& memo = memo_->lists[k];
        void const* address = listAddress(comms, kind, nullptr);
        if (U64 const* known = memo.bits.find(address)) {
            bits |= *known;
            continue;
        }
        RouteComms only;
        listAddress(comms, kind, &only);
        U64 const listBits = evaluate(only, kind, ingest);
        memo.bits.insert(address, listBits);
        if (address)
            memo.held.push_back(std::move(only));
        bits |= listBits;
    }
    return (bits & allMask_) == allMask_ && (!anyMask_ || (bits & anyMask_) != 0) &&
           (bits & noneMask_) == 0;
}

std::optional<std::string> matchWarning(CommKind kind, std::string const& pattern) {
    std::string const quoted = "--match '" + pattern + "'";
    if (kind == CommKind::extended) {
        // Words of the show form only; route policy sees 65000:100 and
        // RT:65000:100 (and the show form of origin validation states only).
        static char const* const showWords[] = {"Route-Target", "Route-Origin", "Link-Bandwidth",
                                                "Color:",       "TunnelEncap",  "VRF-Route-Import",
                                                "EVPN-",        "Flowspec-",    "ESI-"};
        for (char const* word : showWords)
            if (pattern.find(word) != std::string::npos)
                return quoted + " can never match: '" + word +
                       "' is a word of the show form, which extended --match passes never see "
                       "(they see 65000:100, then RT:65000:100); use that form or --has";
    }
    if ((kind == CommKind::standard || kind == CommKind::large) &&
        pattern.find('_') != std::string::npos)
        return quoted +
               " can never match: '_' never occurs in the text; anchor a whole "
               "community with (^| )65000:100( |$)";
    if (kind == CommKind::standard) {
        for (WellKnown const& row : wellKnownRegistry()) {
            if (CommList::wellKnownName(row.value).view().empty() &&
                pattern.find(row.name) != std::string::npos)
                return quoted + " can never match: the library writes " + std::string(row.name) +
                       " as " + std::to_string(row.value >> 16) + ":" +
                       std::to_string(row.value & 0xFFFF) + "; use that or --has " + row.name;
        }
    }
    return std::nullopt;
}

}  // namespace Bgpcomm
