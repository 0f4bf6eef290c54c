#include "vyhw/vyhw.h"

#include "support/casename.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

TEST(VyhwTest, MachinesListsEveryModelAndSubtype)
{
    const Outcome outcome = vyhw({QStringLiteral("machines")});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, QString());
    const QStringList lines = outcome.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 21); // a heading and twenty machines
    EXPECT_EQ(lines.at(1).simplified(), QStringLiteral("Ostrel -"));
    EXPECT_EQ(lines.at(8).simplified(), QStringLiteral("Lirenta 8 full instant"));
    EXPECT_EQ(lines.at(20).simplified(), QStringLiteral("NewQuindo 15"));
}

TEST(VyhwTest, ModelShowPrintsEveryProperty)
{
    const QStringList arguments{QStringLiteral("model"), QStringLiteral("show"),
                                QStringLiteral("Lirenta"), QStringLiteral("8")};
    const Outcome text = vyhw(arguments);
    const Outcome json = vyhw(arguments + QStringList{QStringLiteral("--json")});
    ASSERT_EQ(text.exitCode, 0) << qPrintable(text.err);
    ASSERT_EQ(json.exitCode, 0) << qPrintable(json.err);
    EXPECT_TRUE(text.out.startsWith(QStringLiteral("Lirenta, subtype 8 (full instant)\n")));
    EXPECT_TRUE(text.out.contains(
        QStringLiteral("1280 x 800 pixels, brightness adjustable, contrast fixed")));
    EXPECT_TRUE(text.out.contains(QStringLiteral("105.0 °C")));

    const QJsonObject root = QJsonDocument::fromJson(json.out.toUtf8()).object();
    EXPECT_EQ(root.value(QStringLiteral("model")).toString(), QStringLiteral("Lirenta"));
    EXPECT_EQ(root.value(QStringLiteral("subtype")).toInt(), 8);
    EXPECT_EQ(root.value(QStringLiteral("supportedVoltages")).toArray(), QJsonArray({230, 120}));
    EXPECT_EQ(root.value(QStringLiteral("supportedDaddDeviceModels")).toArray(), QJsonArray({2}));
    const QJsonObject properties = root.value(QStringLiteral("properties")).toObject();
    EXPECT_EQ(properties.size(), 89);
    EXPECT_EQ(properties.value(QStringLiteral("isFullInstant")), QJsonValue(true));
    EXPECT_EQ(properties.value(QStringLiteral("maxEspressoTemp")), QJsonValue(1050));
    EXPECT_EQ(properties.value(QStringLiteral("displaySettings"))
                  .toObject()
                  .value(QStringLiteral("width")),
              QJsonValue(1280));
    const QStringList words = text.out.split(QRegularExpression(QStringLiteral("\\s+")));
    QStringList names = properties.keys();
    names.removeOne(QStringLiteral("displaySettings")); // has a line of its own
    for (const QString &name : names)
        EXPECT_EQ(words.count(name), 1) << qPrintable(name);
}

TEST(VyhwTest, ModelShowTakesTheMachineFromASettingsFile)
{
    const Outcome outcome = vyhw({QStringLiteral("model"), QStringLiteral("show"),
                                  QStringLiteral("--settings"), configFile("corvel.json")});
    EXPECT_EQ(outcome.exitCode, 0) << qPrintable(outcome.err);
    EXPECT_TRUE(outcome.out.startsWith(QStringLiteral("Corvel, subtype 10 (customer edition)\n")));
}

struct WrongCallCase
{
    const char *pName;
    QStringList arguments;
    const char *pError; ///< part of standard error
};

using VyhwWrongCall = ::testing::TestWithParam<WrongCallCase>;

TEST_P(VyhwWrongCall, EndsWithTwoAndSaysWhatWasExpected)
{
    const Outcome outcome = vyhw(GetParam().arguments);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_TRUE(outcome.err.contains(QString::fromUtf8(GetParam().pError)))
        << qPrintable(outcome.err);
}

QStringList words(const char *pText)
{
    return QString::fromLatin1(pText).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

const WrongCallCase s_wrongCalls[] = {
    {"Nothing", words(""), "A subcommand is required"},
    {"UnknownCommand", words("foo"), "\"foo\" is not known here"},
    {"UnknownSubCommand", words("settings foo"), "\"foo\" is not known here"},
    {"MissingKey", words("settings get"), "KEY is required"},
    {"MissingFile", words("settings check"), "FILE is required"},
    {"SubtypeIsNoNumber", words("model show Lirenta x"), "SUBTYPE"},
    {"OneWordTooMany", words("model show Lirenta 8 9"), "\"9\" is not known here"},
    {"FileWithoutItsOption", words("settings list config/lirenta.json"),
     "vyhw: \"config/lirenta.json\" is not known here; name a settings file with --settings "
     "FILE\n"},
    {"FileBehindTheKey", words("settings get machine/model lirenta.json"),
     "\"lirenta.json\" is not known here; name a settings file with --settings FILE\n"},
    {"NoHintForAnOption", words("settings list --sttings f"), "\"--sttings\" is not known here\n"},
    {"NoHintForANumber", words("model show Lirenta 8 9"), "\"9\" is not known here\n"},
    {"NoHintForNothing",
     {QStringLiteral("settings"), QStringLiteral("list"), QString()},
     "\"\" is not known here\n"},
    {"NoHintWithoutTheOption", words("settings check a b"), "\"b\" is not known here\n"},
    {"EmptyFile", {QStringLiteral("settings"), QStringLiteral("check"), QString()}, "is empty"},
    {"TimeIsNoNumber", words("start Lirenta --seconds nan"), "nan is no time"},
    {"TimeTooLong", words("start Lirenta --seconds 3000000"), "expected seconds"},
    {"UnknownSensibility", words("cup watch f --sensibility bogus"), "high"},
    {"UnknownModel", words("model show Lirent"),
     "there is no model \"Lirent\"; expected one of Ostrel, Duvana, Lirenta, MarboTouch, "
     "MarboCapacitiveKeys, "
     "Corvel, NewQuindo"},
    {"UnknownSubtype", words("model show Lirenta 5"),
     "Lirenta has no subtype 5; expected one of - (no subtype), 2, 3, 6, 7, 8, 14"},
};
INSTANTIATE_TEST_SUITE_P(Calls, VyhwWrongCall, ::testing::ValuesIn(s_wrongCalls), caseName);

TEST(VyhwTest, HelpAndVersionEndWithZero)
{
    EXPECT_EQ(vyhw({QStringLiteral("--version")}).out, QStringLiteral("vyhw 1.0.0\n"));
    const Outcome help = vyhw({QStringLiteral("--help")});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.contains(QStringLiteral("Exit codes:")));
}

TEST(VyhwTest, HelpOfAllCommandsHasTheirExamples)
{
    const QString help = vyhw(words("--help-all")).out;
    for (const char *const pExample :
         {"Example: vyhw can send actuator", "Example: vyhw can decode /",
          "Example: vyhw settings get", "Example: vyhw settings list",
          "Example: vyhw settings check", "Example: echo 80 >cup; vyhw cup watch",
          "Examples: vyhw model show", "Example: vyhw info"})
        EXPECT_EQ(help.count(QLatin1String(pExample)), 1) << pExample;
}

TEST(VyhwTest, GroupsHaveExamplesOfTheirOwn)
{
    for (const char *const pGroup : {"can", "cup", "model", "settings"}) {
        const QString help = vyhw({QString::fromLatin1(pGroup), QStringLiteral("--help")})
                                 .out.section(QStringLiteral("Subcommands:"), 1);
        EXPECT_TRUE(help.contains(QStringLiteral("vyhw %1 ").arg(QLatin1String(pGroup)))) << pGroup;
        EXPECT_FALSE(help.contains(QLatin1String("vyhw machines"))) << pGroup;
    }
}

struct HelpCase
{
    const char *pName;
    const char *pHeading; ///< the command's line with its indentation
    QStringList lines;    ///< how lines below it begin, without indentation
};

using VyhwHelpOfAllCommands = ::testing::TestWithParam<HelpCase>;

TEST_P(VyhwHelpOfAllCommands, ShowsWhatTheCommandTakes)
{
    const QStringList lines = vyhw(words("--help-all")).out.split(QLatin1Char('\n'));
    const QString heading = QString::fromLatin1(GetParam().pHeading);
    const auto indentation = [](const QString &line) {
        return line.indexOf(QRegularExpression(QStringLiteral("\\S")));
    };
    QStringList below;
    for (int i = lines.indexOf(heading) + 1; indentation(lines.value(i)) > indentation(heading);
         ++i)
        below.append(lines.at(i).trimmed());
    for (const QString &line : GetParam().lines) {
        const QRegularExpression begin(QLatin1Char('^') + QRegularExpression::escape(line));
        EXPECT_EQ(below.filter(begin).size(), 1) << qPrintable(line);
    }
}

const HelpCase s_helpCases[] = {
    {"ModelShow",
     "  show",
     {QStringLiteral("MODEL"), QStringLiteral("SUBTYPE"), QStringLiteral("--settings FILE"),
      QStringLiteral("--json")}},
    {"SettingsGet", "  get", {QStringLiteral("KEY"), QStringLiteral("--settings FILE")}},
    {"SettingsList", "  list", {QStringLiteral("--settings FILE")}},
    {"SettingsCheck", "  check", {QStringLiteral("FILE")}},
    {"CupWatch",
     "  watch",
     {QStringLiteral("FILE"), QStringLiteral("--sensibility"), QStringLiteral("--seconds")}},
    {"Brightness",
     "brightness",
     {QStringLiteral("SET"), QStringLiteral("MODEL"), QStringLiteral("SUBTYPE"),
      QStringLiteral("--settings FILE"), QStringLiteral("--force")}},
};
INSTANTIATE_TEST_SUITE_P(Commands, VyhwHelpOfAllCommands, ::testing::ValuesIn(s_helpCases),
                         caseName);

TEST(VyhwTest, OutputThatCannotBeWrittenIsAnError)
{
    QProcess process;
    process.setStandardOutputFile(QStringLiteral("/dev/full"));
    process.start(QStringLiteral(VYHW_PROGRAM), {QStringLiteral("machines")});
    ASSERT_TRUE(process.waitForFinished(30000));
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_EQ(process.readAllStandardError(),
              QByteArray("vyhw: standard output could not be written\n"));
}

TEST(VyhwTest, InfoTellsMachineSystemAndBoard)
{
    QTemporaryDir folder;
    const auto write = [&folder](const char *pName, const char *pContent) {
        QFile file(folder.filePath(QString::fromLatin1(pName)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(pContent) > 0);
        return file.fileName().toUtf8();
    };
    qputenv("VY_PATH_SYSTEM_KEY_VERSIONS", write("versions", "kernel_5\nvy-core_1-0-15-1\n"));
    qputenv("VY_PATH_CPUINFO", write("cpuinfo", "processor : 0\nRevision\t: a02082\n"));
    const QStringList arguments{QStringLiteral("info"), QStringLiteral("Corvel"),
                                QStringLiteral("10")};
    const QString text = vyhw(arguments).out;
    EXPECT_TRUE(
        text.contains(QStringLiteral("Machine          Corvel, subtype 10 (customer edition)\n")));
    EXPECT_TRUE(text.contains(QStringLiteral("System key       1.0.15.1, family 2\n")));
    EXPECT_TRUE(text.contains(QStringLiteral("CPU information  updated\n")));
    EXPECT_TRUE(text.contains(QStringLiteral("Board revision   a02082\n")));

    const QJsonObject json =
        QJsonDocument::fromJson(
            vyhw(arguments + QStringList{QStringLiteral("--json")}).out.toUtf8())
            .object();
    EXPECT_EQ(json.value(QStringLiteral("model")), QJsonValue(QStringLiteral("Corvel")));
    EXPECT_EQ(json.value(QStringLiteral("revision")), QJsonValue(QStringLiteral("a02082")));
    EXPECT_EQ(json.value(QStringLiteral("modules")).toObject().size(), 5);
    EXPECT_EQ(json.value(QStringLiteral("hasCpuInfoUpdated")), QJsonValue(true));
}

TEST_F(VyhwFileTest, StartBringsTheMachineUpFollowsTheCupAndShutsDown)
{
    qputenv("VY_CUP_SENSOR_SIMULATION_FILE", write("42\n").toUtf8());
    const Outcome outcome =
        vyhw({QStringLiteral("start"), QStringLiteral("Lirenta"), QStringLiteral("8"),
              QStringLiteral("--seconds"), QStringLiteral("0.5")});
    EXPECT_EQ(outcome.exitCode, 0) << qPrintable(outcome.err);
    const QStringList inOrder{QStringLiteral("starting Lirenta, subtype 8"),
                              QStringLiteral("[Hardware modules]----------------------"),
                              QStringLiteral("PhysicalButtonsModule [ ON  ]"),
                              QStringLiteral("Created simulated Cup sensor!"),
                              QStringLiteral("cupPresenceChanged"),
                              QStringLiteral("stopping"),
                              QStringLiteral("unloading PhysicalButtons"),
                              QStringLiteral("unloading HardwareController"),
                              QStringLiteral("stopped")};
    int position = 0;
    for (const QString &part : inOrder) {
        position = outcome.out.indexOf(part, position);
        ASSERT_GE(position, 0) << qPrintable(part) << " in\n" << qPrintable(outcome.out);
    }
}

TEST_F(VyhwFileTest, StartShutsDownInOrderWhenItIsInterrupted)
{
    qputenv("VY_CUP_SENSOR_SIMULATION_FILE", write("80\n").toUtf8());
    QProcess process;
    process.start(QStringLiteral(VYHW_PROGRAM),
                  {QStringLiteral("start"), QStringLiteral("Ostrel")});
    QByteArray output;
    while (!output.contains("started") && process.waitForReadyRead(10000))
        output += process.readAllStandardOutput();
    process.terminate();
    ASSERT_TRUE(process.waitForFinished(10000));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 0);
    EXPECT_TRUE(process.readAllStandardOutput().contains("stopped"));
}

TEST_F(VyhwFileTest, CupWatchDrawsTheReadingAgainstTheThreshold)
{
    const QString path = write("42\n");
    const Outcome outcome =
        vyhw({QStringLiteral("cup"), QStringLiteral("watch"), path, QStringLiteral("--sensibility"),
              QStringLiteral("low"), QStringLiteral("--seconds"), QStringLiteral("0.5")});
    EXPECT_EQ(outcome.exitCode, 0) << qPrintable(outcome.err);
    const QStringList lines = outcome.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_FALSE(lines.isEmpty());
    // 42 mm fill 21 of 50 columns, the threshold of 30 mm stands in column 15: no cup.
    EXPECT_EQ(lines.constLast().trimmed(), QStringLiteral("[###############|#####") +
                                               QString(29 - 1, QLatin1Char(' ')) +
                                               QStringLiteral(" ]    42 mm  no cup  carrier away"));
}

TEST(VyhwTest, CupWatchWithoutAFileSaysWhatWasExpected)
{
    qunsetenv("VY_CUP_SENSOR_SIMULATION_FILE");
    const Outcome outcome = vyhw({QStringLiteral("cup"), QStringLiteral("watch")});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_TRUE(outcome.err.contains(QStringLiteral("VY_CUP_SENSOR_SIMULATION_FILE")));
}

TEST_F(VyhwFileTest, BrightnessWritesTheFileWhenForced)
{
    qputenv("VY_PATH_MAX_BRIGHTNESS", write("255").toUtf8());
    const QString brightness = m_folder.filePath(QStringLiteral("brightness"));
    qputenv("VY_PATH_BRIGHTNESS", brightness.toUtf8());
    const QStringList arguments{QStringLiteral("brightness"), QStringLiteral("50"),
                                QStringLiteral("Corvel")};
    EXPECT_TRUE(vyhw(arguments).out.startsWith(QStringLiteral("Nothing written")));
    EXPECT_FALSE(QFile::exists(brightness));

    const Outcome forced = vyhw(arguments + QStringList{QStringLiteral("--force")});
    EXPECT_EQ(forced.exitCode, 0) << qPrintable(forced.err);
    EXPECT_EQ(forced.out, brightness + QStringLiteral(": 50 %, written as 127\n"));
}
