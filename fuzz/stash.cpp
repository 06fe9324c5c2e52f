// The stash image reader: attaching to arbitrary octets, then reading every
// record as every type, in place and by destash; then the same after the
// octets behind the header changed under the attached reader (a file
// rewritten in place). Properties: only the framework's errors come out, and
// nothing is read outside the image (the image is an exactly sized heap
// buffer, so the address sanitizer sees any overread).
//
// Input: a selector octet, the image length (2 octets), the image, then the
// octets written over the image after attaching. Selector bit 0 sets the
// checksum the image needs, so that mutations get past it.
#include <string>
#include <vector>

#include "FuzzUtil.h"
#include "KivStash/StoreManager.h"
#include "VoBgp/ExtCommIp6ListDedupTable.h"
#include "VoBgp/Parse/ExtComm.h"
#include "VoBgp/VoBgpCommunityList.h"

using namespace Routing::Bgp;

namespace {

struct Tables {
    BgpParseExtCommContainerSm::Ptr parser = bgpParseExtCommContainerSmFactory();
    ExtCommDedupTable::Ptr values = extCommDedupTableFactory(parser->extCommParser());
    ExtCommIp6DedupTable::Ptr ip6Values = extCommIp6DedupTableFactory(parser->extCommParser());
    ExtCommListDedupTable::Ptr lists = extCommListDedupTableFactory();
};

void readEveryRecord(KivStash::StoreManager* reader, Tables const& tables) {
    for (U32 i = 0; i < reader->records() && i < 64; ++i) {
        void const* record = reader->record(i);
        Fuzz::frameworkErrorsOnly([&] {
            CommListStashView<U32> const view(record, reader);
            (void)view.hash();
            (void)view.comm(view.empty() ? 0 : view.commAt(view.comms() - 1));
        });
        Fuzz::frameworkErrorsOnly([&] { CommList::destash(record, reader); });
        Fuzz::frameworkErrorsOnly([&] { LargeCommList::destash(record, reader); });
        Fuzz::frameworkErrorsOnly([&] {
            ExtCommList::destash(record, reader, tables.values.ptr())->dedup(tables.lists.ptr());
        });
        Fuzz::frameworkErrorsOnly(
            [&] { ExtCommIp6List::destash(record, reader, tables.ip6Values.ptr()); });
        Fuzz::frameworkErrorsOnly([&] { ExtComm::destash(record, reader); });
        Fuzz::frameworkErrorsOnly([&] { ExtCommIp6::destash(record, reader); });
    }
}

}  // namespace

VOBGP_FUZZ_TARGET(input) {
    static Tables const tables;
    U8 const selector = input.octet();
    std::string const octets = input.octets(input.number(2));
    std::vector<U8> image(octets.begin(), octets.end());
    if ((selector & 1) && image.size() >= KivStash::imageHeaderSize) {
        U32 const claimed = KivStash::loadLe32(&image[12]);
        if (claimed >= KivStash::imageHeaderSize && claimed <= image.size()) {
            U64 const sum = KivStash::imageChecksum(image.data(), claimed);
            for (unsigned i = 0; i < 8; ++i)
                image[24 + i] = static_cast<U8>(sum >> (8 * i));
        }
    }
    std::unique_ptr<KivStash::StoreManager> reader;
    if (!Fuzz::frameworkErrorsOnly(
            [&] { reader = std::make_unique<KivStash::StoreManager>(image.data(), image.size()); }))
        return;
    readEveryRecord(reader.get(), tables);
    // Rewritten under the reader: its record offsets are its own copy, the
    // records' contents are not.
    for (std::size_t at = KivStash::imageHeaderSize; at < image.size() && input.left() > 0; ++at)
        image[at] = input.octet();
    readEveryRecord(reader.get(), tables);
}
