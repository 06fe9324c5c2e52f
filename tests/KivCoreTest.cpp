#include <sstream>
#include <thread>
#include <vector>

#include "Kiv/Assert.h"
#include "Kiv/DenseBoolSet.h"
#include "Kiv/Enum.h"
#include "Kiv/Errors.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "Kiv/ValueText.h"
#include "TestUtil.h"
#include "VoFmt/StackBackedBuffer.h"
#include "Vok/DumpContext.h"
#include "Vok/HashMix.h"

namespace KivCoreTest {

#define TEST_FRUIT_MEMBERS(X) X(fruitApple, 1) X(fruitPear, 7) X(fruitUnknown, 256)
KIV_ENUM(TestFruit, U16, "KivCoreTest::TestFruit", TEST_FRUIT_MEMBERS)

#define TEST_TINY_MEMBERS(X) X(tinyZero, 0) X(tinyMax, 255)
KIV_ENUM(TestTiny, U8, "KivCoreTest::TestTiny", TEST_TINY_MEMBERS)

struct Tracked : Kiv::PtrInterface {
    explicit Tracked(int* liveCount) : live(liveCount) { ++*live; }
    ~Tracked() override { --*live; }
    int* live;
};

TEST(Ptr, CountsHoldersAndDeletesWithTheLast) {
    int live = 0;
    {
        Kiv::Ptr<Tracked> a(new Tracked(&live));
        EXPECT_EQ(1u, a->references());
        Kiv::Ptr<Tracked const> b = a;  // constant reference from a mutable one
        EXPECT_EQ(2u, a->references());
        Kiv::Ptr<Tracked> c = std::move(a);
        EXPECT_FALSE(a);
        EXPECT_EQ(2u, c->references());
        EXPECT_EQ(1, live);
    }
    EXPECT_EQ(0, live);
}

TEST(Ptr, ReleaseAndAdoptHandOverOneReference) {
    int live = 0;
    Kiv::Ptr<Tracked> a(new Tracked(&live));
    Tracked* raw = a.release();
    EXPECT_EQ(1u, raw->references());
    auto back = Kiv::Ptr<Tracked>::adopt(raw);
    EXPECT_EQ(1u, back->references());
    back = nullptr;
    EXPECT_EQ(0, live);
}

TEST(Ptr, AtomicCountsSurviveConcurrentCopies) {
    int live = 0;
    Kiv::Ptr<Tracked> shared(new Tracked(&live));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                Kiv::Ptr<Tracked> copy = shared;
                (void)copy;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(1u, shared->references());
}

struct Recorder : Kiv::Notifiee {
    void onAttribute(Kiv::AttributeId attribute, void const* key) override {
        seen.emplace_back(attribute, *static_cast<int const*>(key));
    }
    std::vector<std::pair<Kiv::AttributeId, int>> seen;
};

struct Observable : Kiv::PtrInterface {
    void change(Kiv::AttributeId a, int key) { notify(a, &key); }
};

TEST(Notifiee, ReceivesChangesOnlyWhileBothSidesAreActive) {
    Kiv::Ptr<Observable> subject(new Observable);
    Recorder recorder;
    recorder.notifierIs(subject.ptr());
    subject->change(1, 10);  // subject not active yet
    subject->hasNotificationActiveIs(true);
    subject->change(1, 11);  // recorder not active yet
    recorder.hasNotificationActiveIs(true);
    subject->change(2, 12);
    ASSERT_EQ(1u, recorder.seen.size());
    EXPECT_EQ(std::make_pair(Kiv::AttributeId(2), 12), recorder.seen[0]);
    recorder.notifierIs(nullptr);
    EXPECT_TRUE(subject->notifieeList().empty());
}

TEST(Notifiee, DyingNotifierDetachesItsObservers) {
    Recorder recorder;
    {
        Kiv::Ptr<Observable> subject(new Observable);
        recorder.notifierIs(subject.ptr());
        EXPECT_EQ(1u, subject->notifieeList().size());
    }
    EXPECT_EQ(nullptr, recorder.notifier());
}

TEST(String, NullIsDistinctFromEmpty) {
    Kiv::String null;
    Kiv::String empty("");
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(empty.isNull());
    EXPECT_FALSE(null == empty);
    EXPECT_TRUE(null == Kiv::String::null());
    EXPECT_TRUE(empty == "");
    EXPECT_STREQ("", null.c_str());
}

TEST(String, CopiesShareOneBufferAndHoldAnyOctet) {
    std::string octets("\xC0\x08\x00\x01", 4);
    Kiv::String a(octets);
    Kiv::String b = a;
    EXPECT_TRUE(a.isSameObject(b));
    EXPECT_EQ(4u, b.size());
    EXPECT_EQ(octets, b.str());
    Kiv::String c(octets);
    EXPECT_FALSE(a.isSameObject(c));
    EXPECT_TRUE(a == c);
}

TEST(Enum, NamesAndValuesRoundTrip) {
    EXPECT_EQ("fruitPear", stringValue(fruitPear));
    EXPECT_EQ("fruitPear", valueToStrep(fruitPear));
    EXPECT_EQ(fruitUnknown, TestFruitInstance(Kiv::String("fruitUnknown")));
    EXPECT_EQ(256, TestFruitInstance(256u));
    std::ostringstream os;
    os << fruitApple;
    EXPECT_EQ("fruitApple", os.str());
}

TEST(Enum, NonMembersPrintAsNumbersAndParseBack) {
    TestFruit odd = TestFruitInstance(42u);
    EXPECT_EQ("42", stringValue(odd));
    Kiv::String text("42 rest");
    auto it = text.begin();
    TestFruit parsed = fruitApple;
    sequenceToValue(it, text.end(), &parsed);
    EXPECT_EQ(odd, parsed);
    EXPECT_EQ(' ', *it);
}

TEST(Enum, BadNamesAndWidthsRaise) {
    EXPECT_THROW(TestFruitInstance(Kiv::String("fruitBanana")), Kiv::RangeError);
    EXPECT_THROW(TestTinyInstance(256u), Kiv::RangeError);
    Kiv::String text("fruitBanana");
    auto it = text.begin();
    TestFruit parsed;
    EXPECT_THROW(sequenceToValue(it, text.end(), &parsed), Kiv::RangeError);
    Kiv::String empty("!");
    it = empty.begin();
    EXPECT_THROW(sequenceToValue(it, empty.end(), &parsed), Kiv::ParseError);
}

TEST(ValueText, FormatsAndParsesTheFrameworkForm) {
    Kiv::ValueFormatter f("Ns::Thing");
    f.attr("flag", Kiv::boolText(true)).attr("count", "7");
    std::string text = f.str();
    EXPECT_EQ("Value('Ns::Thing', ** {'flag': True, 'count': 7})", text);

    Kiv::String s(text);
    auto it = s.begin();
    Kiv::ValueParser p(it, s.end(), "Ns::Thing");
    p.attr("flag");
    EXPECT_TRUE(p.readBool());
    p.attr("count");
    EXPECT_EQ(7u, p.readUnsigned());
    p.close();
    EXPECT_EQ(s.end(), it);
}

TEST(ValueText, MissingLiteralRaisesParseError) {
    for (char const* bad :
         {"Value('Ns::Other', ** {'flag': True})", "Value('Ns::Thing', ** {'flag' True})",
          "Value('Ns::Thing', ** {'flag': Maybe})"}) {
        Kiv::String s(bad);
        auto it = s.begin();
        EXPECT_THROW(
            {
                Kiv::ValueParser p(it, s.end(), "Ns::Thing");
                p.attr("flag");
                p.readBool();
                p.close();
            },
            Kiv::ParseError)
            << bad;
    }
}

TEST(ValueText, PointersRoundTrip) {
    int x = 0;
    std::string text = Kiv::pointerText(&x);
    Kiv::String s(text);
    auto it = s.begin();
    EXPECT_EQ(&x, Kiv::parsePointer(it, s.end()));
    EXPECT_EQ("0x0", Kiv::pointerText(nullptr));
    Kiv::String bad("zz");
    it = bad.begin();
    EXPECT_THROW(Kiv::parsePointer(it, bad.end()), Kiv::RangeError);
}

TEST(StackBackedBuffer, StaysInlineThenMovesToTheHeap) {
    VoFmt::StackBackedBuffer<8, 32> buffer;
    buffer.append("abcd");
    buffer.appendDecimal(4294967295u);
    EXPECT_TRUE(buffer.onHeap());
    EXPECT_EQ("abcd4294967295", buffer.view());
    EXPECT_GE(buffer.capacity(), 14u);

    VoFmt::StackBackedBuffer<8, 32> small;
    small.appendHex2(0x0a);
    small.appendDecimal(0);
    EXPECT_FALSE(small.onHeap());
    EXPECT_EQ("0a0", small.view());
}

TEST(StackBackedBuffer, DoublingIsCappedButNeverBelowTheNeed) {
    VoFmt::StackBackedBuffer<4, 6> buffer;
    buffer.append("abcd");
    buffer.append('e');  // doubles 4 -> 8, capped at 6
    EXPECT_EQ(6u, buffer.capacity());
    buffer.append(std::string(20, 'x'));  // needs more than the cap
    EXPECT_EQ(25u, buffer.size());
}

TEST(HashMix, OneAtATimeMatchesKnownValues) {
    Vok::HashMix empty;
    EXPECT_EQ(0u, empty.result());
    // Reference value of Jenkins' one-at-a-time over "a".
    Vok::HashMix a;
    a.mixOctet('a');
    EXPECT_EQ(0xca2e9442u, a.result());
}

TEST(DumpContext, FormatsPrintfStyleLines) {
    std::string out;
    auto ctx = Vok::DumpContext::toString(out);
    ctx.print("%*cList #%u:\n", 2, ' ', 3u);
    ctx.print("%s\n", std::string(300, 'y').c_str());
    EXPECT_EQ("  List #3:\n" + std::string(300, 'y') + "\n", out);
}

TEST(AssertDeathTest, MessageHoldsTextFunctionAndLine) {
    auto fails = [] { KIV_ASSERT(1 + 1 == 3); };
    EXPECT_ASSERT_DEATH(fails(), "1 + 1 == 3");
    auto explicitText = [] { KIV_ASSERT(false, "commVectorSorted()"); };
    EXPECT_ASSERT_DEATH(explicitText(), "commVectorSorted()");
    EXPECT_DEATH(fails(), "KivCoreTest.cpp:[0-9]+: ");
}

}  // namespace KivCoreTest

namespace KivCoreTest {

#define TEST_ATTR_FLAGS(X) X(sorted) X(hasThing) X(hasOther)
KIV_DENSE_BOOL_SET(TestAttrs, "Ns::TestAttrs", TEST_ATTR_FLAGS)

TEST(DenseBoolSet, NamedFlagsTextFormAndRange) {
    TestAttrs attrs(5);
    EXPECT_TRUE(attrs.sorted());
    EXPECT_FALSE(attrs.hasThing());
    EXPECT_TRUE(attrs.hasOther());
    attrs.hasThingIs(true);
    attrs.sortedIs(false);
    EXPECT_EQ(6, attrs.value());
    std::string text = attrs.toStrep();
    EXPECT_EQ("Value('Ns::TestAttrs', ** {'sorted': False, 'hasThing': True, 'hasOther': True})",
              text);
    Kiv::String s(text);
    auto it = s.begin();
    EXPECT_EQ(attrs, TestAttrs::parse(it, s.end()));
    EXPECT_NO_THROW(TestAttrs(7));
    EXPECT_THROW(TestAttrs(8), Kiv::DenseBoolSetRangeError);
}

}  // namespace KivCoreTest
