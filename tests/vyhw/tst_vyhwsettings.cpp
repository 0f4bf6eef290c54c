#include "vyhw/vyhw.h"

#include "support/casename.h"
#include "support/scopedvariable.h"

#include <QDir>

#include <sys/stat.h>
#include <unistd.h>

TEST(VyhwTest, EveryExampleSettingsFileIsRight)
{
    const QStringList names =
        QDir(QStringLiteral(CONFIG_FOLDER)).entryList({QStringLiteral("*.json")});
    EXPECT_EQ(names.size(), 7) << "one for each model";
    for (const QString &name : names) {
        const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"),
                                      QStringLiteral(CONFIG_FOLDER "/") + name});
        EXPECT_EQ(outcome.exitCode, 0) << qPrintable(name + outcome.err);
        EXPECT_EQ(outcome.err, QString()) << qPrintable(name);
    }
}

TEST(VyhwTest, SettingsGetPrintsOneValue)
{
    const auto get = [](const char *pKey) {
        return vyhw({QStringLiteral("settings"), QStringLiteral("get"), QString::fromLatin1(pKey),
                     QStringLiteral("--settings"), configFile("lirenta.json")});
    };
    EXPECT_EQ(get("hardware/usbPath").out, QStringLiteral("/media/usb0\n"));
    EXPECT_EQ(get("hardware/isWifiAvailable").out, QStringLiteral("true\n"));
    EXPECT_EQ(get("machine/subtype").out, QStringLiteral("8\n"));
    EXPECT_EQ(get("machine").out, QStringLiteral("{\"model\":\"Lirenta\",\"subtype\":8}\n"));

    const Outcome missing = get("hardware/usbPth");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out, QString());
    EXPECT_TRUE(
        missing.err.contains(QStringLiteral("lirenta.json: there is no key \"hardware/usbPth\"")));
    EXPECT_TRUE(missing.err.contains(QStringLiteral("hardware/usbPath"))) << "shows what there is";
}

TEST(VyhwTest, SettingsListPrintsEveryValueWithItsKeyPath)
{
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("list"),
                                  QStringLiteral("--settings"), configFile("ostrel.json")});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out, QStringLiteral("hardware/hasRotatedTargetDisplay = false\n"
                                          "hardware/isWifiAvailable = false\n"
                                          "hardware/paymentSerialPath = \"/dev/ttyS2\"\n"
                                          "hardware/qrcodeModemSerialPath = \"/dev/ttyACM0\"\n"
                                          "hardware/statisticsSerialPath = \"/dev/ttyS1\"\n"
                                          "hardware/usbPath = \"/media/usb0\"\n"
                                          "hardware/vl6180x_i2cdev = \"/dev/i2c-1\"\n"
                                          "machine/model = \"Ostrel\"\n"));
}

TEST(VyhwTest, WithoutAFileReadsTheOneOfThePathTable)
{
    qputenv("VY_PATH_SETTINGS", configFile("lirenta.json").toUtf8());
    EXPECT_EQ(
        vyhw({QStringLiteral("settings"), QStringLiteral("get"), QStringLiteral("machine/model")})
            .out,
        QStringLiteral("Lirenta\n"));
    qputenv("VY_PATH_SETTINGS", "/nowhere/settings.json");
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("list")});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(
        outcome.err,
        QStringLiteral("vyhw: /nowhere/settings.json: there is no such file\n"
                       "Name a settings file with --settings FILE or in VY_PATH_SETTINGS.\n"));
}

struct WrongFileCase
{
    const char *pName;
    const char *pContent;
    const char *pError; ///< what follows the file's name
};

class VyhwWrongFile : public VyhwFileTest, public ::testing::WithParamInterface<WrongFileCase>
{
};

TEST_P(VyhwWrongFile, IsToldWithItsPlaceAndWhatWasExpected)
{
    const QString path = write(GetParam().pContent);
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(errorsOf(outcome), QStringLiteral("vyhw: ") + path +
                                     QString::fromUtf8(GetParam().pError) + QLatin1Char('\n'));
}

const WrongFileCase s_wrongFiles[] = {
    {"ScalarRoot", "null", ":1:1: the root is a single value; expected an object"},
    {"GroupIsNoObject", R"({"machine": {"model": "Corvel"}, "hardware": 5})",
     ": key \"hardware\" is 5; expected an object"},
    {"SubtypeWithoutModel", R"({"machine": {"subtype": 99}})",
     ": key \"machine/subtype\" stands without \"machine/model\"; expected both"},
    {"SlashInAName", R"({"hardware/usbPath": "/media"})",
     ": member \"hardware/usbPath\" has a / in its own name, so no key path finds it; expected an "
     "object for each part"},
    {"Empty", "", ": the file is empty; expected a JSON object"},
    {"Blank", " \n\t\n", ": the file is empty; expected a JSON object"},
    {"ArrayRoot", "[1, 2]", ":1:1: the root is an array; expected an object"},
    {"EmptyObject", "{}", ":1:1: the root object has no members; expected at least one"},
    {"TextAsFlag", R"({"hardware": {"isWifiAvailable": "yes"}})",
     ": key \"hardware/isWifiAvailable\" is \"yes\"; expected true or false"},
    {"NumberAsText", R"({"hardware": {"usbPath": 3}})",
     ": key \"hardware/usbPath\" is 3; expected a text in double quotes"},
    {"NullAsText", R"({"hardware": {"usbPath": null}})",
     ": key \"hardware/usbPath\" is null; expected a text in double quotes"},
    {"LongValueIsCut",
     R"({"hardware": {"usbPath": [10000000, 20000000, 30000000, 40000000, 50000000]}})",
     ": key \"hardware/usbPath\" is [10000000,20000000,30000000,40000000,500...; expected a text "
     "in double quotes"},
    {"FractionAsSubtype", R"({"machine": {"model": "Lirenta", "subtype": 8.5}})",
     ": key \"machine/subtype\" is 8.5; expected a whole number"},
    {"UnknownModel", R"({"machine": {"model": "Lirent"}})",
     ": key \"machine/model\" is \"Lirent\"; expected one of Ostrel, Duvana, Lirenta, MarboTouch, "
     "MarboCapacitiveKeys, Corvel, NewQuindo"},
    {"SubtypeOfAnotherModel", R"({"machine": {"model": "Lirenta", "subtype": 10}})",
     ": key \"machine/subtype\" is 10; expected a subtype of Lirenta: -1 (no subtype), 2, 3, 6, 7, "
     "8, 14"},
};
INSTANTIATE_TEST_SUITE_P(Files, VyhwWrongFile, ::testing::ValuesIn(s_wrongFiles), caseName);

struct SyntaxCase
{
    const char *pName;
    QByteArray content;
    const char *pPlace; ///< line and column of the character that is wrong
};

class VyhwSyntaxError : public VyhwFileTest, public ::testing::WithParamInterface<SyntaxCase>
{
};

TEST_P(VyhwSyntaxError, IsToldWithLineAndColumn)
{
    const QString path = write(GetParam().content);
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    const QString begin =
        QStringLiteral("vyhw: %1:%2: ").arg(path, QString::fromLatin1(GetParam().pPlace));
    EXPECT_TRUE(outcome.err.startsWith(begin)) << qPrintable(outcome.err);
}

// Where the end comes too early, that is the place. A text that does not end and a value that is
// none have their beginning.
const SyntaxCase s_syntaxCases[] = {
    {"LoneBrace", "{", "1:2"},
    {"EndBehindALineEnd", "{\"a\": 1,\n", "2:1"},
    {"EndBehindAKey", R"({"a")", "1:5"},
    {"EndBehindANumber", R"({"a": 1)", "1:8"},
    {"EndInAnArray", R"({"a": [1, 2)", "1:12"},
    {"TextWithoutEnd", R"({"a": "b)", "1:7"},
    {"TextWithoutEndBehindABackslash", R"({"a": "b\)", "1:7"},
    {"KeyWithoutEnd", "{\n\"a", "2:1"},
    {"MissingComma", "{\n  \"a\": 1\n  \"b\": 2\n}", "3:3"},
    {"MissingCommaInAnInnerObject", R"({"a": {"b": 1 "c": 2}})", "1:15"},
    {"MissingCommaInAnArray", "{\"a\": [1,\n2 3]}", "2:3"},
    {"SemicolonAsComma", R"({"a": 1; "b": 2})", "1:8"},
    {"MissingColon", "{\n\"a\" 1}", "2:5"},
    {"EqualsSignAsColon", R"({"a"=1})", "1:5"},
    {"CommaAtTheEnd", "{\"a\": 1,\n}", "2:1"},
    {"CommaAtTheEndOfAnArray", R"({"a": [1, ]})", "1:11"},
    {"CommaAlone", "{,}", "1:2"},
    {"TwoCommas", R"({"a": 1,, "b": 2})", "1:9"},
    {"TwoCommasInAnArray", R"({"a": [1,, 2]})", "1:10"},
    {"KeyWithoutQuotes", "{a: 1}", "1:2"},
    {"KeyInSingleQuotes", "{'a': 1}", "1:2"},
    {"NumberAsKey", R"({"a": 1, 2: 3})", "1:10"},
    {"MissingValue", R"({"a": })", "1:7"},
    {"MissingValueBeforeAComma", R"({"a":, "b": 1})", "1:6"},
    {"UnknownWord", R"({"a": yes})", "1:7"},
    {"HalfAWord", R"({"a": tru})", "1:7"},
    {"HalfAWordInAnArray", R"({"a": [1, tru]})", "1:11"},
    {"WordInCapitals", R"({"a": TRUE})", "1:7"},
    {"LeadingZero", R"({"a": 01})", "1:7"},
    {"PlusSign", R"({"a": +1})", "1:7"},
    {"ExponentWithoutNumber", R"({"a": 1e})", "1:7"},
    {"NumberTooLarge", R"({"a": 1e999})", "1:7"},
    {"Hexadecimal", R"({"a": 0x10})", "1:7"},
    {"ValueInSingleQuotes", R"({"a": 'b'})", "1:7"},
    {"BraceClosesAnArray", R"({"a": [1}})", "1:9"},
    {"BracketClosesAnObject", R"({"a": 1])", "1:8"},
    {"OneBraceTooMany", R"({"a": 1}})", "1:9"},
    {"Comment", "{\n  \"a\": 1 // one\n}", "2:10"},
    {"CommentBehind", "{\"a\": 1}\n# one", "2:1"},
    {"NoJson", "\n [machine]\nmodel = Corvel\n", "2:3"},
    {"WordAlone", "model", "1:1"},
    {"ZeroByteBehind", QByteArray("{\"a\": 1}\0", 9), "1:9"},
    {"ColumnsCountCharacters", "{\"\xc3\xa4\xc3\xb6\": 1 2}", "1:10"},
    {"ColumnsCountCharactersBeyond16Bits", "{\"\xf0\x9f\x98\x80\": 1 2}", "1:9"},
    {"ByteOrderMarkIsNoColumn", "\xEF\xBB\xBF{1}", "1:2"},
    {"LineEndsOfTwoCharacters", "{\r\n  \"a\": 1\r\n  \"b\": 2\r\n}", "3:3"},
    {"WrongEscape", R"({"a": "b\u12g4"})", "1:13"},
    {"NoUtf8", "{\"a\": \"b\xff\"}", "1:9"},
    {"NestedTooDeeply", "{\"a\":\n" + QByteArray(1024, '['), "2:1024"},
};
INSTANTIATE_TEST_SUITE_P(Files, VyhwSyntaxError, ::testing::ValuesIn(s_syntaxCases), caseName);

struct DuplicateCase
{
    const char *pName;
    const char *pContent;
    QStringList keys; ///< "LINE:COLUMN KEY_PATH FIRST_LINE" of each
};

class VyhwDuplicateKey : public VyhwFileTest, public ::testing::WithParamInterface<DuplicateCase>
{
    // Qt 5.15 loses the memory of an object or array whose key stands again behind it.
    ScopedVariable m_sanitizer{"ASAN_OPTIONS", "detect_leaks=0"};
};

TEST_P(VyhwDuplicateKey, IsToldWithItsPathAndLine)
{
    const QString path = write(GetParam().pContent);
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    QString expected;
    for (const QString &key : GetParam().keys) {
        const QStringList parts = key.split(QLatin1Char(' '));
        expected += QStringLiteral("vyhw: %1:%2: key \"%3\" stands in line %4 already, and only "
                                   "the last one counts; expected it once\n")
                        .arg(path, parts[0], parts[1], parts[2]);
    }
    EXPECT_EQ(errorsOf(outcome), expected);
    EXPECT_EQ(outcome.exitCode, GetParam().keys.isEmpty() ? 0 : 1);
}

const DuplicateCase s_duplicateCases[] = {
    {"InTheRoot", "{\"a\": 1,\n\"b\": 2,\n\"a\": 1}", {QStringLiteral("3:1 a 1")}},
    {"InAGroup",
     "{\n  \"hardware\": {\n    \"usbPath\": \"/a\",\n    \"usbPath\": \"/b\"\n  }\n}",
     {QStringLiteral("4:5 hardware/usbPath 3")}},
    {"GroupTwice",
     "{\"hardware\": {\"usbPath\": \"/a\"},\n \"hardware\": {\"isWifiAvailable\": true}}",
     {QStringLiteral("2:2 hardware 1")}},
    {"OnOneLine", R"({"a": {"b": {"c": 1, "c": 2}}})", {QStringLiteral("1:22 a/b/c 1")}},
    {"ThreeTimes",
     "{\"a\": 1,\n\"a\": 2,\n\"a\": 3}",
     {QStringLiteral("2:1 a 1"), QStringLiteral("3:1 a 1")}},
    {"InTheOrderOfTheFile",
     "{\"a\": {\"x\": 1, \"x\": 2},\n\"b\": 1,\n\"a\": 1,\n\"b\": 2}",
     {QStringLiteral("1:16 a/x 1"), QStringLiteral("3:1 a 1"), QStringLiteral("4:1 b 2")}},
    {"InAnArray",
     R"({"list": [{"id": 1}, {"id": 1, "id": 2}]})",
     {QStringLiteral("1:32 list[1]/id 1")}},
    {"WrittenInTwoWays", R"({"key": 1, "k\u0065y": 2})", {QStringLiteral("1:12 key 1")}},
    {"EmptyKey", R"({"a": {"": 1, "": 2}})", {QStringLiteral("1:15 a/ 1")}},
    {"WhatATerminalWouldActOn",
     R"({"\u001b": 1, "\u001b": 2})",
     {QStringLiteral("1:15 \\u001b 1")}},
    {"BehindAByteOrderMark", "\xEF\xBB\xBF{\"a\": 1, \"a\": 2}", {QStringLiteral("1:10 a 1")}},
    {"NoneInObjectsSideBySide", R"({"a": {"x": 1}, "b": {"x": 2}, "x": [{"x": 1}, {"x": 2}]})", {}},
    {"NoneInOtherCase", R"({"a": 1, "A": 2})", {}},
    {"NoneInValues", R"({"a": "a", "b": "a", "c": "\"c\": 1, \"c\": 2"})", {}},
};
INSTANTIATE_TEST_SUITE_P(Files, VyhwDuplicateKey, ::testing::ValuesIn(s_duplicateCases), caseName);

// Why it is an error: nothing else would say that the first value is not there.
TEST_F(VyhwFileTest, OfADuplicateKeyTheLastValueCounts)
{
    const QString path = write(R"({"a": 1, "a": 2})");
    EXPECT_EQ(vyhw({QStringLiteral("settings"), QStringLiteral("get"), QStringLiteral("a"),
                    QStringLiteral("--settings"), path})
                  .out,
              QStringLiteral("2\n"));
}

TEST_F(VyhwFileTest, AllErrorsOfAFileAreTold)
{
    const QString path = write(R"({"hardware": {"usbPath": 1, "isWifiAvailable": 2}})");
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(errorsOf(outcome).count(QLatin1Char('\n')), 2);
}

TEST_F(VyhwFileTest, AKeyThatTheLibraryDoesNotNameIsAWarning)
{
    const QString path = write(R"({"machine": {"model": "Corvel"}, "hardware": {"usbPth": "/media"},
                                   "application": {"/dev/ttyS1": 1}})");
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err,
              QStringLiteral(
                  "vyhw: warning: %1: key \"hardware/usbPth\" is none that the library names\n")
                  .arg(path));
}

TEST_F(VyhwFileTest, AFileThatNamesNoMachineIsWarnedOf)
{
    const QString path = write(R"({"a": 1})");
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.err.contains(QStringLiteral("there is no key \"machine/model\"")));
}

TEST_F(VyhwFileTest, WhatATerminalWouldActOnIsEscapedInKeys)
{
    const QString path = write("{\"a\\nb\": 1}");
    const Outcome outcome = vyhw(
        {QStringLiteral("settings"), QStringLiteral("list"), QStringLiteral("--settings"), path});
    EXPECT_EQ(outcome.out, QStringLiteral("a\\u000ab = 1\n"));
}

TEST_F(VyhwFileTest, WhatIsNoFileIsToldAndNothingHangs)
{
    const QString folder = m_folder.path();
    EXPECT_EQ(vyhw({QStringLiteral("settings"), QStringLiteral("check"), folder}).err,
              QStringLiteral("vyhw: %1: a folder; expected a JSON settings file\n").arg(folder));
    const QString pipe = m_folder.filePath(QStringLiteral("pipe"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    EXPECT_EQ(vyhw({QStringLiteral("settings"), QStringLiteral("check"), pipe}).err,
              QStringLiteral("vyhw: %1: not a file; expected a JSON settings file\n").arg(pipe));
    EXPECT_EQ(
        vyhw({QStringLiteral("settings"), QStringLiteral("check"), QStringLiteral("/dev/zero")})
            .exitCode,
        1);
}

TEST_F(VyhwFileTest, AMissingFileIsTold)
{
    const QString path = write("{}");
    for (const char *pMissing : {".old", "/below"}) { // the second is below what is no folder
        const QString missing = path + QString::fromLatin1(pMissing);
        const Outcome outcome =
            vyhw({QStringLiteral("settings"), QStringLiteral("check"), missing});
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.err, QStringLiteral("vyhw: %1: there is no such file\n").arg(missing));
    }
}

TEST_F(VyhwFileTest, AFileThatFailsToBeReadIsNotToldToBeMissing)
{
    const QString path = QStringLiteral("/proc/self/clear_refs"); // for writing only
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_FALSE(outcome.err.contains(QStringLiteral("no such file"))) << qPrintable(outcome.err);
    EXPECT_TRUE(outcome.err.startsWith(QStringLiteral("vyhw: %1: ").arg(path)))
        << qPrintable(outcome.err);
}

/// A file and its folder, each of which can be closed to the tool, which runs as nobody where the
/// test runs as root: permissions do not stop that one.
class VyhwPermissionTest : public VyhwFileTest
{
protected:
    void SetUp() override
    {
        open(m_folder.path());
        // A container may forbid root to become somebody else; permissions then stop nobody.
        if (asNobody({QStringLiteral("--version")}).exitCode != 0)
            GTEST_SKIP() << "the tool cannot be run as another user than root here";
    }
    void TearDown() override { open(m_folder.path()); }

    static void open(const QString &path) { setMode(path, 0755); }
    static void close(const QString &path) { setMode(path, 0); }

    static Outcome check(const QString &path)
    {
        return asNobody({QStringLiteral("settings"), QStringLiteral("check"), path});
    }

private:
    static void setMode(const QString &path, mode_t mode)
    {
        EXPECT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
    }

    static Outcome asNobody(const QStringList &arguments)
    {
        if (::geteuid() != 0)
            return vyhw(arguments);
        return run(QStringLiteral("setpriv"),
                   QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                               QStringLiteral("--clear-groups"), QStringLiteral(VYHW_PROGRAM)} +
                       arguments);
    }
};

TEST_F(VyhwPermissionTest, AFileThatMayNotBeReadIsTold)
{
    const QString path = write("{}");
    close(path);
    const Outcome outcome = check(path);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err, QStringLiteral("vyhw: %1: no permission to read it\n").arg(path));
}

TEST_F(VyhwPermissionTest, AFileInAFolderThatMayNotBeReadIsNotToldToBeMissing)
{
    const QString path = write("{}");
    close(m_folder.path());
    const Outcome outcome = check(path);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err, QStringLiteral("vyhw: %1: no permission to read it\n").arg(path));
}

TEST_F(VyhwFileTest, AFileNameInUtf8IsFoundInEveryLocale)
{
    const QString path = m_folder.filePath(QStringLiteral("Kännchen.json"));
    ASSERT_TRUE(QFile::copy(configFile("lirenta.json"), path));
    const Outcome outcome = vyhw({QStringLiteral("settings"), QStringLiteral("check"), path});
    EXPECT_EQ(outcome.exitCode, 0) << qPrintable(outcome.err);
}
