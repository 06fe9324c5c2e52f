#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "TestUtil.h"
#include "Toggle/Toggle.h"
#include "VoBgp/Parse/ExtComm.h"

namespace {

namespace fs = std::filesystem;

TEST(ToggleJson, StatesOfWellFormedFiles) {
    struct Case {
        char const* json;
        U32 state;
    } const cases[] = {
        {R"({"Mvpn": true})", 1},
        {R"({"Mvpn": 1})", 1},
        {R"({"Mvpn": 7})", 7},
        {"  {\n\t\"Other\": true,\r\n \"Mvpn\" : 1 }\n", 1},
        {R"({"Mvpn": false})", 0},
        {R"({"Mvpn": 0})", 0},
        {R"({"Mvpn": null})", 0},
        {R"({"Mvpn": "true"})", 0},
        {R"({"Mvpn": -1})", 0},
        {R"({"Mvpn": 1.5})", 0},
        {R"({"Mvpn": 1e3})", 0},
        {R"({"Mvpn": 99999999999})", 0xffffffffu},
        {R"({"Other": true})", 0},
        {R"({})", 0},
        // Later duplicates win, as in most readers.
        {R"({"Mvpn": true, "Mvpn": false})", 0},
        // Nested values are read past, never taken for the toggle.
        {R"({"Lib": {"Mvpn": true}, "List": [1, [true], {"a": "b"}], "Mvpn": true})", 1},
        {R"({"Lib": {"Mvpn": true}})", 0},
        // Escapes in names are decoded before comparing.
        {R"({"\u004dvpn": true})", 1},
        {R"({"Mv\"pn": true})", 0},
    };
    for (auto const& c : cases)
        EXPECT_EQ(c.state, Toggle::toggleStateFromJson(c.json, "Mvpn")) << c.json;
}

TEST(ToggleJson, MalformedFilesAreOff) {
    char const* const cases[] = {
        "",
        "true",
        "[1]",
        R"({"Mvpn": true)",
        R"({"Mvpn": true,})",
        R"({"Mvpn" true})",
        R"({Mvpn: true})",
        R"({"Mvpn": tru})",
        R"({"Mvpn": 01})",
        R"({"Mvpn": 1.})",
        R"({"Mvpn": -})",
        R"({"Mvpn": "unterminated})",
        R"({"Mvpn": "bad \q escape"})",
        R"({"Mvpn": true} trailing)",
        R"({"Mvpn": true}})",
        "{\"Mvpn\": \"control\x01char\", \"Mvpn\": true}",
        R"({"a": [1, 2,], "Mvpn": true})",
    };
    for (char const* json : cases)
        EXPECT_EQ(0u, Toggle::toggleStateFromJson(json, "Mvpn")) << json;

    // Deep nesting is refused rather than followed down the stack.
    std::string deep =
        "{\"a\": " + std::string(100000, '[') + std::string(100000, ']') + ", \"Mvpn\": true}";
    EXPECT_EQ(0u, Toggle::toggleStateFromJson(deep, "Mvpn"));
    std::string shallow =
        "{\"a\": " + std::string(20, '[') + std::string(20, ']') + ", \"Mvpn\": true}";
    EXPECT_EQ(1u, Toggle::toggleStateFromJson(shallow, "Mvpn"));
}

// A private toggle directory, named by VOBGP_TOGGLE_DIR while the test runs.
class ToggleDirTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/vobgp-toggle-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        dir_ = pattern;
        char const* old = std::getenv(Toggle::toggleDirEnv);
        if (old)
            saved_ = old;
        hadOld_ = old != nullptr;
        setenv(Toggle::toggleDirEnv, dir_.c_str(), 1);
    }
    void TearDown() override {
        if (hadOld_)
            setenv(Toggle::toggleDirEnv, saved_.c_str(), 1);
        else
            unsetenv(Toggle::toggleDirEnv);
        fs::remove_all(dir_);
    }
    void write(std::string const& file, std::string const& text) {
        std::ofstream(dir_ / file, std::ios::binary) << text;
    }

    fs::path dir_;
    std::string saved_;
    bool hadOld_ = false;
};

TEST_F(ToggleDirTest, ReadsTheNamedFileOnEveryCall) {
    write("MvpnLib.json", R"({"Mvpn": true})");
    EXPECT_EQ(1u, Toggle::getToggleState("Mvpn", "MvpnLib.json", 1));
    // Not cached here: the caller decides whether to keep the answer.
    write("MvpnLib.json", R"({"Mvpn": false})");
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "MvpnLib.json", 1));
    // A trailing slash in the directory name is fine.
    setenv(Toggle::toggleDirEnv, (dir_.string() + "/").c_str(), 1);
    write("MvpnLib.json", R"({"Mvpn": 1})");
    EXPECT_EQ(1u, Toggle::getToggleState("Mvpn", "MvpnLib.json", 1));
}

TEST_F(ToggleDirTest, EverythingUnreadableIsOff) {
    write("MvpnLib.json", R"({"Mvpn": true})");
    // Another toggle of the same file, another file, another format version.
    EXPECT_EQ(0u, Toggle::getToggleState("Other", "MvpnLib.json", 1));
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "Missing.json", 1));
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "MvpnLib.json", 2));
    // Only plain file names inside the directory.
    fs::create_directory(dir_ / "sub");
    write("sub/MvpnLib.json", R"({"Mvpn": true})");
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "sub/MvpnLib.json", 1));
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "", 1));
    // A directory where the file should be.
    fs::create_directory(dir_ / "Dir.json");
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "Dir.json", 1));
    // A file too large to be a toggle file, even with the toggle at its start.
    write("Big.json", R"({"Mvpn": true, "pad": ")" + std::string(70000, 'x') + "\"}");
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "Big.json", 1));
    // Binary garbage.
    static char const garbage[] = "\0\xff{\"Mvpn\": true}";
    write("Garbage.json", std::string(garbage, sizeof garbage - 1));
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "Garbage.json", 1));

    unsetenv(Toggle::toggleDirEnv);
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "MvpnLib.json", 1));
    setenv(Toggle::toggleDirEnv, "", 1);
    EXPECT_EQ(0u, Toggle::getToggleState("Mvpn", "MvpnLib.json", 1));
}

// The parser asks for "Mvpn" once per process. Each state is checked in a
// process of its own (re-executed, so that nothing this process already
// cached leaks in), which also changes the file after the first answer.
void expectMvpnAnsweredOnce(char const* first, char const* later, bool expected) {
    char pattern[] = "/tmp/vobgp-mvpn-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        std::_Exit(2);
    fs::path dir(pattern);
    std::ofstream(dir / "MvpnLib.json") << first;
    setenv(Toggle::toggleDirEnv, pattern, 1);
    bool answer = Routing::Bgp::bgpParseExtCommMvpnEnabled();
    std::ofstream(dir / "MvpnLib.json", std::ios::trunc) << later;
    bool again = Routing::Bgp::bgpParseExtCommMvpnEnabled();
    fs::remove_all(dir);
    std::_Exit(answer == expected && again == expected ? 0 : 1);
}

TEST(MvpnToggle, OnIsReadOncePerProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(expectMvpnAnsweredOnce(R"({"Mvpn": true})", R"({"Mvpn": false})", true),
                ::testing::ExitedWithCode(0), "");
}

TEST(MvpnToggle, OffIsReadOncePerProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(expectMvpnAnsweredOnce(R"({"Mvpn": false})", R"({"Mvpn": true})", false),
                ::testing::ExitedWithCode(0), "");
    // Only the lowest bit of the answer counts.
    EXPECT_EXIT(expectMvpnAnsweredOnce(R"({"Mvpn": 2})", R"({"Mvpn": 1})", false),
                ::testing::ExitedWithCode(0), "");
}

}  // namespace
