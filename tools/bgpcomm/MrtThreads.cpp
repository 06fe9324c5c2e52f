// `bgpcomm mrt --threads N`: one file's records decoded on N threads.
//
// The reading thread only frames records (MrtReader::framedIs) and copies
// them into chunks of about chunkOctets; the lanes of a ChunkPool decode,
// filter, intern into the run's one set of (thread-safe) tables and format
// each chunk into text of its own; chunks are emitted in file order, so
// stdout, stderr, the counts and the routes --stats keeps are the same as on
// one thread. Records are independent once the PEER_INDEX_TABLE they follow
// is known: each chunk carries a copy of the one in force at its start and
// decodes it first, silently (its messages were given where the table is).
#include <cstring>
#include <set>
#include <string_view>

#include "bgpcomm/ChunkPool.h"
#include "bgpcomm/MrtCommand.h"

namespace Bgpcomm {

namespace {

constexpr std::size_t chunkOctets = 256u << 10;

struct Framed {
    U32 timestamp;
    U16 type;
    U16 subtype;
    U32 size;
    U64 offset;  // stream offset of the body
    U64 number;  // in the stream, from 1
};

struct PeerTable {
    Framed record;
    std::vector<U8> body;
};

struct Chunk {
    std::vector<U8> octets;
    std::vector<Framed> records;
    std::shared_ptr<PeerTable const> peerTable;
    // The reader's own messages after the last record of the chunk.
    std::string readerDiag;
    U64 readerReports = 0;
    // Results.
    std::string text;
    std::string diag;
    U64 reports = 0;
    RunCounts counts;
    std::vector<RouteComms> held;
};

// Each chunk's reader reports an unknown peer index once; over the whole
// file it is once per peer table, as on one thread: the first report in file
// order stays (unmarked), later ones go.
void keepFirstUnknownPeerReports(std::string& text, U64& reports, std::set<std::string>& reported) {
    if (text.find('\x01') == std::string::npos)
        return;
    std::string kept;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end + 1;
        std::string_view line(text.data() + at, end - at);
        std::size_t const open = line.find('\x01');
        std::size_t const close = open == line.npos ? line.npos : line.find('\x01', open + 1);
        if (close == line.npos) {
            kept += line;
        } else if (reported.insert(std::string(line.substr(open, close - open))).second) {
            kept += line.substr(0, open);
            kept += line.substr(close + 1);
        } else {
            --reports;
        }
        at = end;
    }
    text = std::move(kept);
}

void addCounts(RunCounts& to, RunCounts const& from) {
    to.records += from.records;
    to.routesRead += from.routesRead;
    to.routesMatched += from.routesMatched;
    for (unsigned k = 0; k < commKindCount; ++k)
        to.attributes[k] += from.attributes[k];
}

}  // namespace

MrtRun::Threads::Threads(MrtRun& run) : diags(run.options_.threads) {
    for (unsigned i = 0; i < run.options_.threads; ++i) {
        lanes.push_back(std::make_unique<Lane>(run, &diags[i]));
        lanes.back()->output.ownCacheIs();
        lanes.back()->cache = std::make_unique<Ingest::Cache>(run.ingest());
    }
}

MrtRun::~MrtRun() {
    threads_.reset();
    // The kept lists die before the tables they are interned in.
    stats_.release();
}

void MrtRun::sourceThreaded(std::string const& label, ByteSource& source) {
    if (!threads_)
        threads_ = std::make_unique<Threads>(*this);
    label_ = label;
    diag_.fileIs(label);
    ++counts_.files;

    auto work = [&](Chunk& chunk, unsigned laneIndex) {
        Lane& lane = *threads_->lanes[laneIndex];
        Diag& diag = *lane.diag;
        diag.fileIs(label);
        lane.counts = &chunk.counts;
        lane.text = &chunk.text;
        lane.held = &chunk.held;
        MrtReader decoder(source, diag, [&](RouteBatch const& batch) { this->batch(lane, batch); });
        decoder.markUnknownPeersIs(true);
        std::string silent;
        diag.captureIs(&silent);
        if (chunk.peerTable) {
            PeerTable const& table = *chunk.peerTable;
            decoder.decode(table.record.timestamp, table.record.type, table.record.subtype,
                           Cursor(table.body.data(), table.body.size(), table.record.offset),
                           table.record.number);
        }
        diag.captureIs(&chunk.diag);
        U64 const reportsBefore = diag.reports();
        U8 const* p = chunk.octets.data();
        for (Framed const& record : chunk.records) {
            decoder.decode(record.timestamp, record.type, record.subtype,
                           Cursor(p, record.size, record.offset), record.number);
            p += record.size;
        }
        chunk.reports = diag.reports() - reportsBefore;
    };
    std::set<std::string> unknownPeersReported;
    // Emitted chunks' buffers, for the next chunks: a chunk's octets keep
    // their pages and never grow by copying (emit and seal both run on
    // this, the reading thread).
    std::vector<std::vector<U8>> spareOctets;
    std::vector<std::vector<Framed>> spareRecords;
    auto emit = [&](Chunk& chunk) {
        keepFirstUnknownPeerReports(chunk.diag, chunk.reports, unknownPeersReported);
        if (!chunk.text.empty())
            std::fwrite(chunk.text.data(), 1, chunk.text.size(), out_);
        diag_.relay(chunk.diag, chunk.reports);
        diag_.relay(chunk.readerDiag, chunk.readerReports);
        addCounts(counts_, chunk.counts);
        if (!chunk.held.empty())
            stats_.hold(std::move(chunk.held));
        chunk.octets.clear();
        chunk.records.clear();
        spareOctets.push_back(std::move(chunk.octets));
        spareRecords.push_back(std::move(chunk.records));
    };
    ChunkPool<Chunk> pool(options_.threads, work, emit);

    // The reader's messages (framing) are captured and follow the records
    // before them.
    Diag readerDiag(label);
    std::string readerText;
    readerDiag.captureIs(&readerText);
    std::shared_ptr<PeerTable const> peerTable;
    auto fresh = [&] {
        auto made = std::make_unique<Chunk>();
        if (!spareOctets.empty()) {
            made->octets = std::move(spareOctets.back());
            made->records = std::move(spareRecords.back());
            spareOctets.pop_back();
            spareRecords.pop_back();
        } else {
            // Room for the records that fill a chunk and the one that ends it.
            made->octets.reserve(2 * chunkOctets);
        }
        made->peerTable = peerTable;
        return made;
    };
    auto chunk = fresh();
    auto seal = [&] {
        chunk->readerDiag = std::move(readerText);
        readerText.clear();
        chunk->readerReports = readerDiag.reports();
        readerDiag = Diag(label);
        readerDiag.captureIs(&readerText);
        pool.submit(std::move(chunk));
        chunk = fresh();
    };
    MrtReader reader(source, readerDiag, nullptr);
    reader.framedIs([&](U32 timestamp, U16 type, U16 subtype, Cursor body) {
        Framed record{timestamp, type, subtype, U32(body.left()), body.offset(), reader.records()};
        if (!readerText.empty())
            seal();  // a framing message comes after the records before it
        chunk->records.push_back(record);
        chunk->octets.insert(chunk->octets.end(), body.data(), body.data() + body.left());
        if (type == mrtTableDumpV2 && subtype == td2PeerIndexTable) {
            auto table = std::make_shared<PeerTable>();
            table->record = record;
            table->body.assign(body.data(), body.data() + body.left());
            peerTable = std::move(table);
        }
        if (chunk->octets.size() >= chunkOctets)
            seal();
    });
    progressIs(reader, label, source);
    reader.run();
    seal();
    pool.drain();
    counts_.records += reader.records();
}

}  // namespace Bgpcomm
