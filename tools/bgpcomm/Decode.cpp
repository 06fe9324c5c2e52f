#include "bgpcomm/Decode.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "bgpcomm/Attrs.h"
#include "bgpcomm/CommOptions.h"
#include "bgpcomm/Ingest.h"
#include "bgpcomm/Notes.h"

namespace Bgpcomm {

using namespace Routing::Bgp;

char const* const decodeHelp =
    "Usage: bgpcomm decode VALUE...\n"
    "Prints every text form of each community given. A VALUE is:\n"
    "  - a path attribute in hex: flags, type, length and value, of type 8\n"
    "    (COMMUNITIES), 16 (EXTENDED COMMUNITIES), 25 (IPV6 ADDRESS SPECIFIC\n"
    "    EXTENDED COMMUNITY) or 32 (LARGE_COMMUNITY), e.g. c00804ffffff01\n"
    "  - one value in hex: 8 digits standard, 16 extended, 24 large, 40 IPv6\n"
    "    extended, e.g. 0x0002fde800000064\n"
    "  - a:b (standard) or a:b:c (large) in decimal, e.g. 65000:100\n"
    "Options:\n"
    "  --dictionary DIR  community descriptions from a folder of NLNOG-style files\n"
    "                    (before the shipped copy); --no-dictionary: not the shipped one\n"
    "  --default-parser  decode extended communities with the library's default\n"
    "                    parser only, without the EVPN, flowspec and transitive\n"
    "                    link bandwidth plug-ins\n"
    "Exit status: 0 success, 1 an attribute had a bad length, 2 usage error.\n";

namespace {

std::optional<std::vector<U8>> parseHex(std::string const& text) {
    std::string digits;
    std::size_t start = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0 ? 2 : 0;
    for (std::size_t i = start; i < text.size(); ++i) {
        char c = text[i];
        if (c == ' ' || c == ':' || c == '-')
            continue;
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return std::nullopt;
        digits += c;
    }
    if (digits.empty() || digits.size() % 2)
        return std::nullopt;
    std::vector<U8> octets;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        octets.push_back(static_cast<U8>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    return octets;
}

// "a:b" or "a:b:c" in decimal, each field in range; the value as octets.
std::optional<std::vector<U8>> parseColonText(std::string const& text) {
    std::vector<U64> fields(1, 0);
    for (char c : text) {
        if (c == ':') {
            fields.push_back(0);
        } else if (c >= '0' && c <= '9' && fields.back() <= 0xFFFFFFFFull) {
            fields.back() = fields.back() * 10 + U64(c - '0');
        } else {
            return std::nullopt;
        }
    }
    std::vector<U8> octets;
    auto put = [&](U64 v, unsigned n) {
        for (unsigned i = n; i-- > 0;)
            octets.push_back(static_cast<U8>(v >> (8 * i)));
    };
    if (fields.size() == 2 && fields[0] <= 0xFFFF && fields[1] <= 0xFFFF) {
        put(fields[0], 2);
        put(fields[1], 2);
    } else if (fields.size() == 3 && fields[0] <= 0xFFFFFFFFull && fields[1] <= 0xFFFFFFFFull &&
               fields[2] <= 0xFFFFFFFFull) {
        for (U64 f : fields)
            put(f, 4);
    } else {
        return std::nullopt;
    }
    return octets;
}

// "strepFormatLinkBwWeighted" -> "policy linkbwweighted".
std::string policyLabel(std::string_view flag) {
    std::string name(flag.substr(std::string_view("strepFormat").size()));
    for (char& c : name)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return "policy " + name;
}

// Control characters (the content form writes type octets raw) as \xNN.
std::string printable(std::string_view text) {
    std::string out;
    for (char c : text) {
        auto u = static_cast<unsigned char>(c);
        if (u >= 0x20 && u < 0x7f) {
            out += c;
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", u);
            out += escaped;
        }
    }
    return out;
}

class Decoder {
  public:
    Decoder(std::string* out, Ingest::Parser parser, Notes const* notes)
        : out_(*out), ingest_(parser), notes_(notes) {}

    void line(char const* form, std::string_view text) {
        char label[40];
        std::snprintf(label, sizeof label, "  %-28s", form);
        out_ += label;
        out_ += text;
        out_ += '\n';
    }

    void hexLine(U8 const* p, std::size_t n) {
        std::string hex = "0x";
        char digits[3];
        for (std::size_t i = 0; i < n; ++i) {
            std::snprintf(digits, sizeof digits, "%02x", p[i]);
            hex += digits;
        }
        line("octets", hex);
    }

    // Every community of one attribute value of `kind`.
    void values(CommKind kind, U8 const* p, std::size_t n) {
        AttrSpan span{p, static_cast<U32>(n), 0, true};
        U32 const size = commKindInfo(kind).elementSize;
        for (std::size_t i = 0; i + size <= n; i += size) {
            span.data = p + i;
            span.size = size;
            one(kind, span);
        }
    }

  private:
    void one(CommKind kind, AttrSpan const& span) {
        static char const* const titles[commKindCount] = {
            "standard community", "extended community", "IPv6 address specific extended community",
            "large community"};
        out_ += titles[static_cast<unsigned>(kind)];
        out_ += '\n';
        hexLine(span.data, span.size);
        RouteComms comms;
        switch (kind) {
            case CommKind::standard: {
                comms.standard = ingest_.standard(span);
                U32 value = comms.standard->commVectorRawPtr().front();
                line("value", std::to_string(value));
                line("numeric", CommList::getStringValue(value).view());
                texts(comms, kind, "show");
                std::string name = CommList::wellKnownName(value).str();
                line("well-known name", name.empty() ? "(none)" : name);
                line("json raw", std::to_string(value));
                break;
            }
            case CommKind::large: {
                comms.large = ingest_.large(span);
                Acl::CommunityValue const& value = comms.large->commVectorRawPtr().front();
                line("plain", LargeCommList::displayString(value, false).view());
                line("asdot", LargeCommList::displayString(value, true).view());
                char raw[48];
                std::snprintf(raw, sizeof raw, "[%u,%u,%u]", value.globalAdmin(),
                              value.localData1(), value.localData2());
                line("json raw", raw);
                break;
            }
            case CommKind::extended: {
                comms.extended = ingest_.extended(span);
                ExtComm const& comm = *comms.extended->commVectorRawPtr()->front();
                line("type", stringValue(comm.pktType()));
                extendedForms<ExtComm::StrepFormat>(comm, ExtComm::StrepFormatTraits::names);
                line("show (toStrepForUI)", comm.toStrepForUI().view());
                line("show asdot", comm.toStrepForUI(true).view());
                line("show link-bw weighted", comm.toStrepForUI(false, true).view());
                line("show json", comm.toStrepForUI(false, false, true).view());
                break;
            }
            case CommKind::ipv6: {
                comms.ipv6 = ingest_.ipv6(span);
                ExtCommIp6 const& comm = *comms.ipv6->commVectorRawPtr()->front();
                line("content", printable(valueToStrep(comm.getContent()).view()));
                extendedForms<ExtCommIp6::StrepFormat>(comm, ExtCommIp6::StrepFormatTraits::names);
                texts(comms, kind, "show");
                break;
            }
        }
        // The text the JSON output of `bgpcomm mrt` carries.
        texts(comms, kind, "json text", true);
        forEachKey(comms, kind, [&](CommKey const* key, U32 value) {
            std::string note = notes_ && key ? notes_->note(key, value) : std::string();
            if (!note.empty())
                line("note", note);
        });
    }

    // The forms both extended kinds have: derived, classification,
    // transitivity, and the policy form under each format flag alone.
    template <class StrepFormat, class Comm, class Names>
    void extendedForms(Comm const& comm, Names const& names) {
        line("derived", comm.toStrep().view());
        line("classification", stringValue(comm.classification()));
        line("transitive", comm.isTransitive() ? "yes" : "no");
        for (unsigned bit = 0; bit < StrepFormat::flagCount; ++bit) {
            StrepFormat format;
            format.set(bit, true);
            line(policyLabel(names[bit]).c_str(), comm.toStrepForPolicy(format).view());
        }
    }

    void texts(RouteComms const& comms, CommKind kind, char const* label, bool quoted = false) {
        ingest_.forEachText(comms, kind, false, [&](std::string_view text) {
            std::string shown;
            if (quoted)
                shown += '"';
            shown += text;
            if (quoted)
                shown += '"';
            line(label, shown);
        });
    }

    std::string& out_;
    Ingest ingest_;
    Notes const* notes_;
};

std::optional<CommKind> kindOfAttr(U8 type) {
    for (CommKind kind : {CommKind::standard, CommKind::extended, CommKind::ipv6, CommKind::large})
        if (commKindInfo(kind).attrType == type)
            return kind;
    return std::nullopt;
}

std::optional<CommKind> kindOfSize(std::size_t size) {
    for (CommKind kind : {CommKind::standard, CommKind::extended, CommKind::ipv6, CommKind::large})
        if (commKindInfo(kind).elementSize == size)
            return kind;
    return std::nullopt;
}

}  // namespace

int decode(std::vector<std::string> const& args, std::string* out, std::string* err,
           Dictionary const* dictionary) {
    bool defaultParser = false;
    std::vector<std::string> values;
    for (std::size_t i = 0; i < args.size(); ++i) {
        defaultParser |= args[i] == "--default-parser";
        if (args[i] == "--dictionary")
            ++i;
        else if (args[i] != "--default-parser" && args[i] != "--no-dictionary")
            values.push_back(args[i]);
    }
    Notes notes(dictionary);
    Decoder decoder(
        out, defaultParser ? Ingest::Parser::libraryDefault : Ingest::Parser::withOptInPlugins,
        &notes);
    int status = 0;
    for (std::string const& arg : values) {
        auto octets = arg.find(':') != std::string::npos && arg.rfind("0x", 0) != 0
                          ? parseColonText(arg)
                          : parseHex(arg);
        if (!octets) {
            *err += "bgpcomm decode: cannot read '" + arg + "' as hex octets, a:b or a:b:c\n";
            return 2;
        }
        std::vector<U8> const& v = *octets;
        // A path attribute (RFC 4271 section 4.3): the optional bit set and a
        // length that accounts for every octet.
        if (v.size() >= 3 && (v[0] & attrFlagOptional) && kindOfAttr(v[1])) {
            std::size_t header = (v[0] & attrFlagExtendedLength) ? 4 : 3;
            std::size_t length =
                header == 4 && v.size() >= 4 ? (std::size_t(v[2]) << 8 | v[3]) : v[2];
            if (v.size() >= header && header + length == v.size()) {
                CommKind kind = *kindOfAttr(v[1]);
                CommKindInfo const& info = commKindInfo(kind);
                *out += std::string(info.attrName) + " attribute, flags 0x";
                char flags[3];
                std::snprintf(flags, sizeof flags, "%02x", v[0]);
                *out += flags;
                *out += ", length " + std::to_string(length) + "\n";
                if (length % info.elementSize != 0) {
                    *err += "bgpcomm decode: " + std::string(info.attrName) + " attribute length " +
                            std::to_string(length) + " is not a multiple of " +
                            std::to_string(info.elementSize) + "; trailing octets skipped\n";
                    status = 1;
                }
                decoder.values(kind, v.data() + header, length);
                continue;
            }
        }
        auto kind = kindOfSize(v.size());
        if (!kind) {
            *err += "bgpcomm decode: '" + arg + "' is " + std::to_string(v.size()) +
                    " octets: neither a community attribute nor a value of 4, 8, 12 or 20 "
                    "octets\n";
            return 2;
        }
        decoder.values(*kind, v.data(), v.size());
    }
    return status;
}

int decodeCommand(std::vector<std::string> const& args) {
    for (std::string const& arg : args) {
        if (arg == "--help" || arg == "-h") {
            std::fputs(decodeHelp, stdout);
            return 0;
        }
    }
    if (args.empty()) {
        std::fputs("bgpcomm decode: nothing to decode\nTry 'bgpcomm decode --help'.\n", stderr);
        return 2;
    }
    MrtOptions dictionaryOptions;
    for (std::size_t i = 0; i < args.size(); ++i) {
        dictionaryOptions.noDictionary |= args[i] == "--no-dictionary";
        if (args[i] == "--dictionary" && i + 1 < args.size())
            dictionaryOptions.dictionaries.push_back(args[++i]);
    }
    auto dictionary = loadDictionaries(dictionaryOptions);
    std::string out, err;
    int status = decode(args, &out, &err, dictionary.get());
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::fwrite(err.data(), 1, err.size(), stderr);
    return status;
}

}  // namespace Bgpcomm
