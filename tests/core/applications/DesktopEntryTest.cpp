#include <gtest/gtest.h>

#include <system_error>

#include "platform/DesktopEntry.h"
#include "model/Errors.h"
#include "support/TempTree.h"

using namespace tarnbridge;

namespace {
const std::string kGroup(kDesktopEntryGroup);
}

TEST(DesktopEntry, ReadsGroupsKeysCommentsAndBlankLines)
{
    const DesktopEntry entry = DesktopEntry::parse("# a comment\n"
                                                   "\n"
                                                   "[Desktop Entry]\r\n"
                                                   "Type = Application\n"
                                                   "  # indented comment\n"
                                                   "Name=Ink  well \n"
                                                   "Exec=ink %U\n"
                                                   "Name=Inkwell\n"
                                                   "   \n"
                                                   "[Desktop Action new]\n"
                                                   "Name=New=Window\n"
                                                   "Empty=\n");
    ASSERT_EQ(entry.groups().size(), 2u);
    EXPECT_EQ(entry.groups()[0].name, kGroup);
    EXPECT_EQ(entry.groups()[1].name, "Desktop Action new");
    EXPECT_EQ(entry.string(kGroup, "Type"), "Application"); // spaces around "=" go
    EXPECT_EQ(entry.string(kGroup, "Name"), "Inkwell");     // a repeated key: the last one
    EXPECT_EQ(entry.string(kGroup, "Exec"), "ink %U");
    EXPECT_EQ(entry.string("Desktop Action new", "Name"), "New=Window");
    EXPECT_EQ(entry.string("Desktop Action new", "Empty"), "");
    EXPECT_EQ(entry.string("Desktop Action new", "Type"), std::nullopt); // keys stay in their group
    EXPECT_EQ(entry.string("Missing", "Name"), std::nullopt);
    EXPECT_TRUE(entry.hasGroup("Desktop Action new"));
    EXPECT_FALSE(entry.hasGroup("Desktop Action"));
}

TEST(DesktopEntry, DecodesEscapesOfStringValues)
{
    const struct {
        const char* raw;
        const char* decoded;
    } cases[] = {
        {R"(a\sb)", "a b"},         {R"(one\ntwo)", "one\ntwo"}, {R"(a\tb)", "a\tb"},
        {R"(a\rb)", "a\rb"},        {R"(C:\\dir)", "C:\\dir"},   {R"(a\;b)", "a\\;b"}, // lists keep theirs
        {R"(end\)", "end\\"},       {R"(\\s)", "\\s"},          {"plain", "plain"},
        {"caf\xc3\xa9", "caf\xc3\xa9"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DesktopEntry::unescape(c.raw), c.decoded) << c.raw;
        const DesktopEntry entry = DesktopEntry::parse("[Desktop Entry]\nComment=" + std::string(c.raw) + "\n");
        EXPECT_EQ(entry.raw(kGroup, "Comment"), c.raw);
        EXPECT_EQ(entry.string(kGroup, "Comment"), c.decoded) << c.raw;
    }
}

TEST(DesktopEntry, LocalisedKeysFallBackInTheStandardOrder)
{
    const std::string all = "[Desktop Entry]\nName=Plain\nName[de]=lang\nName[de@euro]=lang@mod\n"
                            "Name[de_AT]=lang_COUNTRY\nName[de_AT@euro]=lang_COUNTRY@mod\nName[fr]=French\n";
    const struct {
        const char* locale;
        const char* expected;
    } cases[] = {
        {"de_AT.UTF-8@euro", "lang_COUNTRY@mod"},
        {"de_AT.UTF-8", "lang_COUNTRY"},
        {"de_CH.UTF-8@euro", "lang@mod"},
        {"de_CH", "lang"},
        {"de", "lang"},
        {"fr_FR.UTF-8", "French"},
        {"it_IT.UTF-8", "Plain"},
        {"C", "Plain"},
        {"C.UTF-8", "Plain"},
        {"", "Plain"},
    };
    const DesktopEntry entry = DesktopEntry::parse(all);
    for (const auto& c : cases)
        EXPECT_EQ(entry.localeString(kGroup, "Name", c.locale), c.expected) << c.locale;
    // Without the plain key a language that has no value of its own gives nothing.
    const DesktopEntry onlyGerman = DesktopEntry::parse("[Desktop Entry]\nName[de]=Tinte\n");
    EXPECT_EQ(onlyGerman.localeString(kGroup, "Name", "de_DE"), "Tinte");
    EXPECT_EQ(onlyGerman.localeString(kGroup, "Name", "en_GB"), std::nullopt);
}

TEST(DesktopEntry, BooleansAcceptTheStandardAndTheOldSpellings)
{
    const DesktopEntry entry =
        DesktopEntry::parse("[Desktop Entry]\nA=true\nB=false\nC=1\nD=0\nE=yes\nF= true\n");
    EXPECT_TRUE(entry.boolean(kGroup, "A"));
    EXPECT_FALSE(entry.boolean(kGroup, "B", true));
    EXPECT_TRUE(entry.boolean(kGroup, "C"));
    EXPECT_FALSE(entry.boolean(kGroup, "D", true));
    EXPECT_FALSE(entry.boolean(kGroup, "E"));
    EXPECT_TRUE(entry.boolean(kGroup, "E", true)); // not a boolean: the fallback
    EXPECT_TRUE(entry.boolean(kGroup, "F"));
    EXPECT_FALSE(entry.boolean(kGroup, "Missing"));
    EXPECT_TRUE(entry.boolean(kGroup, "Missing", true));
}

TEST(DesktopEntry, MalformedFilesNameTheLineThatBreaksThem)
{
    const struct {
        std::string text;
        std::string message;
    } cases[] = {
        {"[Desktop Entry]\nName=x\njust words\n", "Line 3 is neither a group, a key nor a comment."},
        {"Name=x\n[Desktop Entry]\n", "Line 1 has a key before the first group."},
        {"[Desktop Entry\nName=x\n", "Line 1 is not a complete group header."},
        {"[]\n", "Line 1 is not a complete group header."},
        {"[A]\n[B]\n[A]\n", "Line 3 repeats the group [A]."},
        {"[A[B]]\n", "Line 1 has a group name with brackets in it."},
        {"[A]\n=value\n", "Line 2 has no valid key name."},
        {"[A]\nName[]=x\n", "Line 2 has a key with a broken locale."},
        {"[A]\nName[de=x\n", "Line 2 has a key with a broken locale."},
        {"[A]\nMy Key=x\n", "Line 2 has no valid key name."},
        {std::string("[A]\nName=a\0b\n", 13), "The file holds binary data, not a desktop entry."},
        {"[A]\n" + std::string(2 << 20, '#'), "The file is too large to be a desktop entry."},
    };
    for (const auto& c : cases) {
        try {
            DesktopEntry::parse(c.text);
            ADD_FAILURE() << "accepted: " << c.text.substr(0, 40);
        } catch (const TarnbridgeError& error) {
            EXPECT_EQ(std::string(error.what()), c.message) << c.text.substr(0, 40);
        }
    }
    // What looks odd but is allowed stays readable.
    EXPECT_NO_THROW(DesktopEntry::parse(""));
    EXPECT_NO_THROW(DesktopEntry::parse("[A]\nX-Vendor_Key.1=v\nName[sr@latin]=v\nName=\xff\xfe\n"));
    EXPECT_EQ(DesktopEntry::parse("[A]\nName=\xff\xfe\n").string("A", "Name"), "\xff\xfe");
}

TEST(DesktopEntry, ReadingAFileThatIsGoneFailsWithTheSystemsWords)
{
    test::TempTree tree;
    tree.fileWithText("ok.desktop", "[Desktop Entry]\nName=Ok\n");
    EXPECT_EQ(DesktopEntry::read(tree.path("ok.desktop")).string(kGroup, "Name"), "Ok");
    try {
        DesktopEntry::read(tree.path("gone.desktop"));
        ADD_FAILURE() << "a missing file was read";
    } catch (const std::system_error& error) {
        EXPECT_EQ(describeError(error), "No such file or directory");
    }
    tree.folder("folder.desktop");
    EXPECT_THROW(DesktopEntry::read(tree.path("folder.desktop")), std::system_error);
}

TEST(DesktopEntry, ExecLinesSplitByTheirQuotingRules)
{
    using Args = std::vector<std::string>;
    const struct {
        std::string exec;
        std::optional<Args> args;
    } cases[] = {
        {"inkwell %U", Args{"inkwell", "%U"}},
        {"  /opt/ink/bin/ink   --new  ", Args{"/opt/ink/bin/ink", "--new"}},
        {R"("/opt/My App/run" --x)", Args{"/opt/My App/run", "--x"}},
        {R"(sh -c "echo \"hi\" \$HOME \`x\` \\ \d")", Args{"sh", "-c", R"(echo "hi" $HOME `x` \ \d)"}},
        {"sh -c 'a \"b\" c'", Args{"sh", "-c", "a \"b\" c"}},
        {R"(a\ b c)", Args{"a b", "c"}},
        {R"(pre"quoted part"post)", Args{"prequoted partpost"}},
        {"\"\"", Args{""}},
        {"\"unterminated", std::nullopt},
        {"'unterminated", std::nullopt},
        {"", std::nullopt},
        {"   ", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(DesktopEntry::splitExec(c.exec), c.args) << c.exec;
}
