#include "abstractsettings.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/exittest.h"
#include "support/logspy.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QMetaMethod>
#include <QTemporaryDir>

#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

// clang-format off
const QString s_pathSignature = QStringLiteral("QJsonValue AbstractSettings::findSetting(const QString&, bool, bool&, bool*) const");
const QString s_memberSignature = QStringLiteral("QJsonValue AbstractSettings::findSetting(QJsonObject, const QString&, bool, bool&, bool*) const");
// clang-format on

/// As compact JSON text; undefined reads "null".
std::string json(const QJsonValue &value)
{
    const QByteArray list = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return list.mid(1, list.size() - 2).toStdString();
}

QJsonArray array(const QList<int> &numbers)
{
    QJsonArray values;
    for (const int number : numbers)
        values.append(number);
    return values;
}

QJsonArray array(const QList<QJsonObject> &objects)
{
    QJsonArray values;
    for (const QJsonObject &object : objects)
        values.append(object);
    return values;
}

QString missingSetting(const QString &key)
{
    return QStringLiteral("Couldn't find setting '%1' in JSON settings").arg(key);
}

QString missingSettingLine(const QString &key)
{
    return QStringLiteral("%1 : Couldn't find setting \"%2\"").arg(s_pathSignature, key);
}

QString missingValue(const QString &key)
{
    return QStringLiteral("Couldn't find value '%1' in specific json oject").arg(key);
}

/// Ends in a blank: a QVariant that holds an object is no text, so the last piece is empty.
QString missingValueLine(const QString &key)
{
    return QStringLiteral("%1 : Couldn't find value \"%2\" in specific json oject ")
        .arg(s_memberSignature, key);
}

void expectOneAssertion(const AssertSpy &asserts, const QString &message)
{
    ASSERT_EQ(asserts.records().size(), 1);
    const AssertRecord &record = asserts.records().first();
    EXPECT_EQ(record.condition.toStdString(), "");
    EXPECT_EQ(record.message.toStdString(), message.toStdString());
    EXPECT_EQ(record.file.toStdString(), "src/abstractsettings");
    EXPECT_FALSE(record.isRelease);
}

void expectOneLine(const LogSpy &log, const QString &text)
{
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.level, 0);
    EXPECT_EQ(record.module, Log::Global);
    EXPECT_EQ(record.text.toStdString(), text.toStdString());
}

void expectSilence(const AssertSpy &asserts, const LogSpy &log)
{
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_TRUE(log.texts().isEmpty()) << log.texts().join(QLatin1Char('\n')).toStdString();
}

/// What a lookup of this path must have told.
void expectPathReports(const AssertSpy &asserts, const LogSpy &log, const QString &key, bool found,
                       bool optional)
{
    if (found) {
        expectSilence(asserts, log);
        return;
    }
    if (optional) {
        EXPECT_TRUE(asserts.records().isEmpty());
        expectOneLine(log, missingSettingLine(key));
        return;
    }
    EXPECT_TRUE(log.texts().isEmpty());
    expectOneAssertion(asserts, missingSetting(key));
}

} // namespace

// -- paths ----------------------------------------------------------------------------------------

struct PathCase
{
    const char *pName;
    const char *pDocument;
    const char *pKey;
    const char *pValue; ///< JSON text; null where nothing is to be found
};

using AbstractSettingsPathTable = ::testing::TestWithParam<PathCase>;

TEST_P(AbstractSettingsPathTable, WalksFromTheRoot)
{
    AbstractSettings::setSettings(GetParam().pDocument);
    const AbstractSettings settings;
    const QString key = QString::fromUtf8(GetParam().pKey);
    const bool isThere = GetParam().pValue != nullptr;

    for (const bool optional : {false, true}) {
        const AssertSpy asserts;
        const LogSpy log;
        bool found = !isThere;
        bool ok = !isThere;
        const QJsonValue value = settings.findSetting(key, optional, found, &ok);

        EXPECT_EQ(found, isThere);
        EXPECT_EQ(ok, isThere);
        EXPECT_FALSE(value.isUndefined());
        EXPECT_EQ(json(value), isThere ? GetParam().pValue : "null");
        expectPathReports(asserts, log, key, isThere, optional);
    }
}

const PathCase s_pathCases[] = {
    {"KeyInRoot", R"({"x": 1})", "x", "1"},
    {"KeyWithoutSlashOnlyInRoot", R"({"a": {"x": 1}})", "x", nullptr},
    {"AbsentKeyInRoot", R"({"x": 1})", "y", nullptr},
    {"TwoComponents", R"({"a": {"b": 1}})", "a/b", "1"},
    {"FourComponents", R"({"a": {"b": {"c": {"d": 1}}}})", "a/b/c/d", "1"},
    {"OuterComponentFirst", R"({"a": {"b": 1}, "b": {"a": 2}})", "b/a", "2"},
    {"ObjectAtTheEnd", R"({"a": {"b": {"c": 1}}})", "a/b", R"({"c":1})"},
    {"ArrayAtTheEnd", R"({"a": {"b": [1, 2]}})", "a/b", "[1,2]"},
    {"NullAtTheEnd", R"({"a": {"b": null}})", "a/b", "null"},
    {"NullInRoot", R"({"a": null})", "a", "null"},
    {"AbsentAtTheEnd", R"({"a": {"b": 1}})", "a/c", nullptr},
    {"AbsentFirst", R"({"a": {"b": 1}})", "c/b", nullptr},
    {"AbsentBetween", R"({"a": {"b": {"c": 1}}})", "a/d/c", nullptr},
    {"NoFallBackToTheRoot", R"({"a": {"c": 1}, "b": 2})", "a/b", nullptr},
    {"StopsAtNumber", R"({"a": 5})", "a/b", nullptr},
    {"StopsAtString", R"({"a": "b"})", "a/b", nullptr},
    {"StopsAtBool", R"({"a": true})", "a/b", nullptr},
    {"StopsAtNull", R"({"a": null})", "a/b", nullptr},
    {"StopsAtArray", R"({"a": [{"b": 1}]})", "a/b", nullptr},
    {"StopsAtArrayForItsIndex", R"({"a": [1]})", "a/0", nullptr},
    {"StopsAtNumberBetween", R"({"a": {"b": 5}, "c": 1})", "a/b/c", nullptr},
    {"SlashIsNoPartOfAKey", R"({"a/b": 1})", "a/b", nullptr},
    {"EmptyBetween", R"({"a": {"": {"b": 1}}})", "a//b", "1"},
    {"EmptyBetweenIsKept", R"({"a": {"b": 1}})", "a//b", nullptr},
    {"EmptyFirst", R"({"": {"a": 1}})", "/a", "1"},
    {"EmptyFirstIsKept", R"({"a": 1})", "/a", nullptr},
    {"EmptyLast", R"({"a": {"": 1}})", "a/", "1"},
    {"EmptyLastIsKept", R"({"a": 1})", "a/", nullptr},
    {"OnlySlash", R"({"": {"": 1}})", "/", "1"},
    {"EmptyKey", R"({"": 1})", "", "1"},
    {"EmptyKeyAbsent", R"({"a": 1})", "", nullptr},
    {"OtherCaseFirst", R"({"Hardware": {"usbPath": 1}})", "hardware/usbPath", nullptr},
    {"OtherCaseLast", R"({"hardware": {"usbPath": 1}})", "hardware/usbpath", nullptr},
    {"OtherCaseInRoot", R"({"X": 1})", "x", nullptr},
    {"NotAscii", "{\"k\u00fche\": {\"\u00e9\": 1}}", "k\u00fche/\u00e9", "1"},
};
INSTANTIATE_TEST_SUITE_P(Paths, AbstractSettingsPathTable, ::testing::ValuesIn(s_pathCases),
                         caseName);

TEST(AbstractSettingsTest, UsbPathInObjectHardwareYieldsMedia)
{
    AbstractSettings::setSettings(R"({"hardware": {"usbPath": "/media"}})");
    const AbstractSettings settings;
    EXPECT_EQ(settings.stringSetting(QStringLiteral("hardware/usbPath")), QStringLiteral("/media"));
}

TEST(AbstractSettingsTest, UsbPathInNumberHardwareIsNotFound)
{
    AbstractSettings::setSettings(R"({"hardware": 5})");
    const AbstractSettings settings;
    const AssertSpy asserts;
    bool ok = true;
    EXPECT_EQ(settings.stringSetting(QStringLiteral("hardware/usbPath"), &ok, false), QString());
    EXPECT_FALSE(ok);
    expectOneAssertion(asserts, missingSetting(QStringLiteral("hardware/usbPath")));
}

TEST(AbstractSettingsTest, LeafWithValueNullIsFoundByThePathLookup)
{
    AbstractSettings::setSettings(R"({"x": null})");
    const AbstractSettings settings;
    const QString key = QStringLiteral("x");
    const AssertSpy asserts;
    const LogSpy log;
    bool found = false;
    EXPECT_TRUE(settings.findSetting(key, false, found, nullptr).isNull());
    EXPECT_TRUE(found);
    EXPECT_EQ(settings.stringSetting(key), QString());
    EXPECT_FALSE(settings.boolSetting(key));
    EXPECT_EQ(settings.intSetting(key), 0);
    EXPECT_EQ(settings.doubleSetting(key), 0.0);
    expectSilence(asserts, log);
}

TEST(AbstractSettingsTest, PathLookupTakesNoOk)
{
    AbstractSettings::setSettings(R"({"x": 1})");
    const AbstractSettings settings;
    bool found = false;
    EXPECT_EQ(settings.findSetting(QStringLiteral("x"), false, found, nullptr).toInt(), 1);
    EXPECT_TRUE(found);
    settings.findSetting(QStringLiteral("y"), true, found, nullptr);
    EXPECT_FALSE(found);
}

// -- members of an object -------------------------------------------------------------------------

struct MemberCase
{
    const char *pName;
    const char *pKey; ///< in the object of the test
    QJsonValue::Type type;
    bool found;
};

using AbstractSettingsMemberTable = ::testing::TestWithParam<std::tuple<MemberCase, bool>>;

TEST_P(AbstractSettingsMemberTable, OnlyNullIsMissing)
{
    const auto &[member, optional] = GetParam();
    const QJsonObject object{{QStringLiteral("number"), 2},
                             {QStringLiteral("false"), false},
                             {QStringLiteral("object"), QJsonObject{{QStringLiteral("id"), 1}}},
                             {QStringLiteral("object/id"), QStringLiteral("not split")},
                             {QStringLiteral("null"), QJsonValue::Null}};
    const AbstractSettings settings;
    const QString key = QString::fromUtf8(member.pKey);

    for (const bool takesOk : {true, false}) {
        const AssertSpy asserts;
        const LogSpy log;
        bool found = !member.found;
        bool ok = !member.found;
        const QJsonValue value =
            settings.findSetting(object, key, optional, found, takesOk ? &ok : nullptr);

        EXPECT_EQ(value.type(), member.type);
        EXPECT_EQ(found, member.found);
        EXPECT_EQ(ok, takesOk ? member.found : !member.found);
        if (member.found) {
            expectSilence(asserts, log);
            continue;
        }
        expectOneLine(log, missingValueLine(key));
        if (optional)
            EXPECT_TRUE(asserts.records().isEmpty());
        else
            expectOneAssertion(asserts, missingValue(key));
    }
}

const MemberCase s_memberCases[] = {
    {"Number", "number", QJsonValue::Double, true},
    {"False", "false", QJsonValue::Bool, true},
    {"Object", "object", QJsonValue::Object, true},
    {"KeyWithSlash", "object/id", QJsonValue::String, true},
    {"Absent", "absent", QJsonValue::Undefined, true},
    {"AbsentEmptyKey", "", QJsonValue::Undefined, true},
    {"OtherCase", "Null", QJsonValue::Undefined, true},
    {"Null", "null", QJsonValue::Null, false},
};
const auto memberCaseName = [](const auto &info) {
    return std::string(std::get<0>(info.param).pName) +
           (std::get<1>(info.param) ? "Optional" : "Mandatory");
};
INSTANTIATE_TEST_SUITE_P(Members, AbstractSettingsMemberTable,
                         ::testing::Combine(::testing::ValuesIn(s_memberCases), ::testing::Bool()),
                         memberCaseName);

namespace {

/// What a mandatory or optional lookup of a member that is null tells, in its order.
std::vector<std::string> reportsOfANullMember(bool optional)
{
    std::vector<std::string> reports;
    const int assertObserver = addAssertObserver([&reports](const AssertRecord &record) {
        reports.push_back("assertion: " + record.message.toStdString());
    });
    const int logObserver = LogFormatter::addObserver([&reports](const LogRecord &record) {
        reports.push_back("line: " + record.text.toStdString());
    });
    bool found = true;
    const QJsonObject object{{QStringLiteral("id"), QJsonValue::Null}};
    AbstractSettings().findSetting(object, QStringLiteral("id"), optional, found, nullptr);
    LogFormatter::removeObserver(logObserver);
    removeAssertObserver(assertObserver);
    return reports;
}

} // namespace

TEST(AbstractSettingsTest, MandatoryMemberThatIsMissingIsReportedByTheAssertionThenByTheLine)
{
    const QString key = QStringLiteral("id");
    EXPECT_EQ(reportsOfANullMember(false),
              (std::vector<std::string>{"assertion: " + missingValue(key).toStdString(),
                                        "line: " + missingValueLine(key).toStdString()}));
}

TEST(AbstractSettingsTest, OptionalMemberThatIsMissingIsReportedByTheLineAlone)
{
    EXPECT_EQ(
        reportsOfANullMember(true),
        std::vector<std::string>{"line: " + missingValueLine(QStringLiteral("id")).toStdString()});
}

TEST(AbstractSettingsTest, MemberLookupDoesNotLookIntoTheDocument)
{
    AbstractSettings::setSettings(R"({"x": 1})");
    const AbstractSettings settings;
    bool found = false;
    EXPECT_TRUE(settings.findSetting(QJsonObject(), QStringLiteral("x"), false, found, nullptr)
                    .isUndefined());
    EXPECT_TRUE(found);
}

// -- getters --------------------------------------------------------------------------------------

/// A JSON type as the getters see it; all of it JSON text.
struct Kind
{
    const char *pRight;       ///< a value of this type
    const char *pWrong;       ///< one of another
    const char *pRightResult; ///< how the value of this type reads
    const char *pEmptyResult; ///< how any other reads
};

const Kind s_string{R"("/media")", "3", R"("/media")", R"("")"};
const Kind s_bool{"true", "1", "true", "false"};
const Kind s_int{"5", R"("5")", "5", "0"};
const Kind s_double{"1.5", R"("1.5")", "1.5", "0"};
const Kind s_array{R"([1,"b",null])", R"({"1":1})", R"([1,"b",null])", "[]"};
const Kind s_objectList{R"([{"id":1},7,{}])", R"({"id":1})", R"([{"id":1},{},{}])", "[]"};
const Kind s_intList{R"([{"id":2},{"id":5}])", R"({"id":2})", "[2,5]", "[]"};

struct GetterForm
{
    const char *pName;
    const Kind *pKind;
    bool optional;
    bool takesOk;
    const char *pMissingResult; ///< JSON text
    QJsonValue (*pRead)(const AbstractSettings &settings, const QString &key, bool *pOk);
};

struct ValueState
{
    const char *pName;
    const char *pKey;
    bool found;
};

class AbstractSettingsGetterTable
    : public ::testing::TestWithParam<std::tuple<GetterForm, ValueState>>
{
protected:
    const GetterForm m_form = std::get<0>(GetParam());
    const ValueState m_state = std::get<1>(GetParam());
    const QString m_key = QString::fromUtf8(m_state.pKey);

    void SetUp() override
    {
        AbstractSettings::setSettings(QByteArray(R"({"group": {"right": )") + m_form.pKind->pRight +
                                      R"(, "wrong": )" + m_form.pKind->pWrong +
                                      R"(, "null": null}})");
    }

    const char *expectedResult() const
    {
        if (!m_state.found)
            return m_form.pMissingResult;
        return m_key == QLatin1String("group/right") ? m_form.pKind->pRightResult
                                                     : m_form.pKind->pEmptyResult;
    }
};

TEST_P(AbstractSettingsGetterTable, ReadsAndReports)
{
    const AbstractSettings settings;
    const AssertSpy asserts;
    const LogSpy log;
    bool ok = !m_state.found;
    EXPECT_EQ(json(m_form.pRead(settings, m_key, &ok)), expectedResult());
    if (m_form.takesOk) {
        EXPECT_EQ(ok, m_state.found);
    }
    expectPathReports(asserts, log, m_key, m_state.found, m_form.optional);
}

TEST_P(AbstractSettingsGetterTable, ReadsAndReportsTheSameWithoutOk)
{
    const AbstractSettings settings;
    const AssertSpy asserts;
    const LogSpy log;
    EXPECT_EQ(json(m_form.pRead(settings, m_key, nullptr)), expectedResult());
    expectPathReports(asserts, log, m_key, m_state.found, m_form.optional);
}

// clang-format off
const GetterForm s_getterForms[] = {
    {"StringMandatory", &s_string, false, true, R"("")",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.stringSetting(key, pOk, false); }},
    {"StringOptional", &s_string, true, true, R"("")",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.stringSetting(key, pOk, true); }},
    {"StringKeyOnly", &s_string, false, false, R"("")",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.stringSetting(key); }},
    {"StringDefault", &s_string, true, false, R"("d")",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.stringOptionalSetting(key, QStringLiteral("d")); }},
    {"BoolMandatory", &s_bool, false, true, "false",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.boolSetting(key, pOk, false); }},
    {"BoolOptional", &s_bool, true, true, "false",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.boolSetting(key, pOk, true); }},
    {"BoolKeyOnly", &s_bool, false, false, "false",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.boolSetting(key); }},
    {"BoolDefaultTrue", &s_bool, true, false, "true",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.boolOptionalSetting(key, true); }},
    {"BoolDefaultFalse", &s_bool, true, false, "false",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.boolOptionalSetting(key, false); }},
    {"IntMandatory", &s_int, false, true, "0",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.intSetting(key, pOk, false); }},
    {"IntOptional", &s_int, true, true, "0",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.intSetting(key, pOk, true); }},
    {"IntKeyOnly", &s_int, false, false, "0",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.intSetting(key); }},
    {"IntDefault", &s_int, true, false, "-7",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.intOptionalSetting(key, -7); }},
    {"DoubleMandatory", &s_double, false, true, "0",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.doubleSetting(key, pOk, false); }},
    {"DoubleOptional", &s_double, true, true, "0",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.doubleSetting(key, pOk, true); }},
    {"DoubleKeyOnly", &s_double, false, false, "0",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.doubleSetting(key); }},
    {"DoubleDefault", &s_double, true, false, "-0.25",
     [](auto &s, auto &key, bool *) -> QJsonValue { return s.doubleOptionalSetting(key, -0.25); }},
    {"ArrayMandatory", &s_array, false, true, "[]",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.arraySetting(key, pOk, false); }},
    {"ArrayOptional", &s_array, true, true, "[]",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return s.arraySetting(key, pOk, true); }},
    {"ObjectListMandatory", &s_objectList, false, true, "[]",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return array(s.objectListSetting(key, pOk, false)); }},
    {"ObjectListOptional", &s_objectList, true, true, "[]",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return array(s.objectListSetting(key, pOk, true)); }},
    {"IntListMandatory", &s_intList, false, true, "[]",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return array(s.intListSetting(key, QStringLiteral("id"), pOk, false)); }},
    {"IntListOptional", &s_intList, true, true, "[]",
     [](auto &s, auto &key, bool *pOk) -> QJsonValue { return array(s.intListSetting(key, QStringLiteral("id"), pOk, true)); }},
};
// clang-format on

const ValueState s_valueStates[] = {
    {"RightType", "group/right", true},
    {"WrongType", "group/wrong", true},
    {"Null", "group/null", true},
    {"Absent", "group/absent", false},
    {"BehindANumber", "group/wrong/behind/it", false},
};
const auto getterCaseName = [](const auto &info) {
    return std::string(std::get<0>(info.param).pName) + std::get<1>(info.param).pName;
};
INSTANTIATE_TEST_SUITE_P(Getters, AbstractSettingsGetterTable,
                         ::testing::Combine(::testing::ValuesIn(s_getterForms),
                                            ::testing::ValuesIn(s_valueStates)),
                         getterCaseName);

struct ConversionCase
{
    const char *pName;
    const char *pJson;
    const char *pString;
    bool isTrue;
    int number;
    double real;
};

using AbstractSettingsConversionTable = ::testing::TestWithParam<ConversionCase>;

TEST_P(AbstractSettingsConversionTable, ValueThatIsThereNeverReadsAsTheCallersDefault)
{
    AbstractSettings::setSettings(QByteArray(R"({"x": )") + GetParam().pJson + "}");
    const AbstractSettings settings;
    const QString key = QStringLiteral("x");
    const AssertSpy asserts;
    const LogSpy log;
    const QString text = settings.stringOptionalSetting(key, QStringLiteral("default"));
    EXPECT_EQ(text.toStdString(), GetParam().pString);
    EXPECT_EQ(settings.boolOptionalSetting(key, !GetParam().isTrue), GetParam().isTrue);
    EXPECT_EQ(settings.intOptionalSetting(key, -99), GetParam().number);
    EXPECT_EQ(settings.doubleOptionalSetting(key, -99.5), GetParam().real);
    expectSilence(asserts, log);
}

const ConversionCase s_conversionCases[] = {
    {"Number", "7", "", false, 7, 7.0},
    {"One", "1", "", false, 1, 1.0},
    {"NegativeNumber", "-3", "", false, -3, -3.0},
    {"WholeWithPoint", "4.0", "", false, 4, 4.0},
    {"Fraction", "2.5", "", false, 0, 2.5},
    {"LargestInt", "2147483647", "", false, 2147483647, 2147483647.0},
    {"OneAboveLargestInt", "2147483648", "", false, 0, 2147483648.0},
    {"SmallestInt", "-2147483648", "", false, -2147483647 - 1, -2147483648.0},
    {"OneBelowSmallestInt", "-2147483649", "", false, 0, -2147483649.0},
    {"True", "true", "", true, 0, 0.0},
    {"False", "false", "", false, 0, 0.0},
    {"String", R"("text")", "text", false, 0, 0.0},
    {"EmptyString", R"("")", "", false, 0, 0.0},
    {"StringOfDigits", R"("7")", "7", false, 0, 0.0},
    {"StringTrue", R"("true")", "true", false, 0, 0.0},
    {"Null", "null", "", false, 0, 0.0},
    {"Array", "[1]", "", false, 0, 0.0},
    {"Object", R"({"x": 1})", "", false, 0, 0.0},
};
INSTANTIATE_TEST_SUITE_P(Conversions, AbstractSettingsConversionTable,
                         ::testing::ValuesIn(s_conversionCases), caseName);

TEST(AbstractSettingsTest, StringOptionalSettingOfAbsentKeyYieldsDefaultAndLogsOnce)
{
    AbstractSettings::setSettings(R"({"other": 1})");
    const AbstractSettings settings;
    const AssertSpy asserts;
    const LogSpy log;
    EXPECT_EQ(settings.stringOptionalSetting(QStringLiteral("x"), QStringLiteral("d")),
              QStringLiteral("d"));
    EXPECT_TRUE(asserts.records().isEmpty());
    expectOneLine(log, missingSettingLine(QStringLiteral("x")));
}

TEST(AbstractSettingsTest, StringOptionalSettingOfNumberYieldsEmptyString)
{
    AbstractSettings::setSettings(R"({"x": 3})");
    const AbstractSettings settings;
    EXPECT_EQ(settings.stringOptionalSetting(QStringLiteral("x"), QStringLiteral("d")), QString());
}

TEST(AbstractSettingsTest, IntListSettingTakesElementsWithoutTheMemberAsZero)
{
    AbstractSettings::setSettings(R"({"list": [{"id": 2}, {"other": 1}, 7]})");
    const AbstractSettings settings;
    for (const bool optional : {false, true}) {
        const AssertSpy asserts;
        const LogSpy log;
        bool ok = false;
        EXPECT_EQ(
            settings.intListSetting(QStringLiteral("list"), QStringLiteral("id"), &ok, optional),
            (QList<int>{2, 0, 0}));
        EXPECT_TRUE(ok);
        expectSilence(asserts, log);
    }
}

struct IntListCase
{
    const char *pName;
    const char *pList; ///< JSON text
    QList<int> numbers;
    bool ok;
    int missing; ///< members that count as missing
};

using AbstractSettingsIntListTable = ::testing::TestWithParam<IntListCase>;

TEST_P(AbstractSettingsIntListTable, OkIsTheLastElements)
{
    AbstractSettings::setSettings(QByteArray(R"({"list": )") + GetParam().pList + "}");
    const AbstractSettings settings;
    for (const bool optional : {false, true}) {
        const AssertSpy asserts;
        const LogSpy log;
        bool ok = !GetParam().ok;
        EXPECT_EQ(
            settings.intListSetting(QStringLiteral("list"), QStringLiteral("id"), &ok, optional),
            GetParam().numbers);
        EXPECT_EQ(ok, GetParam().ok);

        const QString line = missingValueLine(QStringLiteral("id"));
        EXPECT_EQ(log.texts().size(), GetParam().missing);
        EXPECT_EQ(log.texts().count(line), GetParam().missing);
        EXPECT_EQ(log.count(line, 0, Log::Global), GetParam().missing);
        const int assertions = optional ? 0 : GetParam().missing;
        EXPECT_EQ(asserts.records().size(), assertions);
        EXPECT_EQ(asserts.count("", "Couldn't find value 'id' in specific json oject",
                                "src/abstractsettings"),
                  assertions);
    }
}

const IntListCase s_intListCases[] = {
    {"NoElements", "[]", {}, true, 0},
    {"OneElement", R"([{"id": 2}])", {2}, true, 0},
    {"InOrder", R"([{"id": 3}, {"id": 1}, {"id": 2}])", {3, 1, 2}, true, 0},
    {"LastIsAbsent", R"([{"id": 2}, {}])", {2, 0}, true, 0},
    {"LastIsNull", R"([{"id": 2}, {"id": null}])", {2, 0}, false, 1},
    {"OnlyTheFirstIsNull", R"([{"id": null}, {"id": 2}])", {0, 2}, true, 1},
    {"AllAreNull", R"([{"id": null}, {"id": null}])", {0, 0}, false, 2},
    {"NoObjects", R"([1, "2", [3], null, true])", {0, 0, 0, 0, 0}, true, 0},
    {"NoNumbers", R"([{"id": "2"}, {"id": 2.5}, {"id": true}])", {0, 0, 0}, true, 0},
};
INSTANTIATE_TEST_SUITE_P(IntLists, AbstractSettingsIntListTable,
                         ::testing::ValuesIn(s_intListCases), caseName);

TEST(AbstractSettingsTest, IntListSettingTakesTheMemberAsOnePlainKey)
{
    AbstractSettings::setSettings(R"({"a": {"list": [{"b/id": 2, "b": {"id": 3}}]}})");
    const AbstractSettings settings;
    EXPECT_EQ(
        settings.intListSetting(QStringLiteral("a/list"), QStringLiteral("b/id"), nullptr, false),
        QList<int>{2});
}

// -- by name --------------------------------------------------------------------------------------

TEST(AbstractSettingsTest, AddsEightPublicSlotsInOrderAndNothingElse)
{
    const QMetaObject &metaObject = AbstractSettings::staticMetaObject;
    QStringList slotList;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const QMetaMethod method = metaObject.method(i);
        EXPECT_EQ(method.methodType(), QMetaMethod::Slot) << method.methodSignature().constData();
        EXPECT_EQ(method.access(), QMetaMethod::Public) << method.methodSignature().constData();
        slotList.append(QString::fromLatin1(method.typeName()) + QLatin1Char(' ') +
                        QString::fromLatin1(method.methodSignature()));
    }
    EXPECT_EQ(slotList.join(QLatin1Char('\n')).toStdString(),
              "QString stringSetting(QString)\n"
              "QString stringOptionalSetting(QString,QString)\n"
              "bool boolSetting(QString)\n"
              "bool boolOptionalSetting(QString,bool)\n"
              "int intSetting(QString)\n"
              "int intOptionalSetting(QString,int)\n"
              "double doubleSetting(QString)\n"
              "double doubleOptionalSetting(QString,double)");
    EXPECT_EQ(metaObject.propertyCount(), QObject::staticMetaObject.propertyCount());
    EXPECT_EQ(metaObject.enumeratorCount(), QObject::staticMetaObject.enumeratorCount());
    EXPECT_STREQ(metaObject.superClass()->className(), "QObject");
}

namespace {

template <typename Result>
Result called(const char *pName, const char *pKey, const QGenericArgument &defaultValue = {})
{
    AbstractSettings settings;
    Result result{};
    const QReturnArgument<Result> returned(QMetaType::typeName(qMetaTypeId<Result>()), result);
    EXPECT_TRUE(QMetaObject::invokeMethod(&settings, pName, returned,
                                          Q_ARG(QString, QString::fromLatin1(pKey)), defaultValue))
        << pName;
    return result;
}

} // namespace

TEST(AbstractSettingsTest, SlotsAreCallableByName)
{
    AbstractSettings::setSettings(R"({"a": {"s": "text", "b": true, "i": 5, "d": 1.5}})");
    EXPECT_EQ(called<QString>("stringSetting", "a/s"), QStringLiteral("text"));
    EXPECT_TRUE(called<bool>("boolSetting", "a/b"));
    EXPECT_EQ(called<int>("intSetting", "a/i"), 5);
    EXPECT_EQ(called<double>("doubleSetting", "a/d"), 1.5);
}

TEST(AbstractSettingsTest, SlotsWithDefaultAreCallableByName)
{
    AbstractSettings::setSettings(R"({"s": "text", "b": true, "i": 5, "d": 1.5})");
    const QString text = QStringLiteral("default");
    for (const bool isThere : {true, false}) {
        EXPECT_EQ(
            called<QString>("stringOptionalSetting", isThere ? "s" : "x", Q_ARG(QString, text)),
            isThere ? QStringLiteral("text") : text);
        EXPECT_TRUE(
            called<bool>("boolOptionalSetting", isThere ? "b" : "x", Q_ARG(bool, !isThere)));
        EXPECT_EQ(called<int>("intOptionalSetting", isThere ? "i" : "x", Q_ARG(int, 9)),
                  isThere ? 5 : 9);
        EXPECT_EQ(called<double>("doubleOptionalSetting", isThere ? "d" : "x", Q_ARG(double, 0.25)),
                  isThere ? 1.5 : 0.25);
    }
}

// -- loading --------------------------------------------------------------------------------------

TEST(AbstractSettingsTest, BeforeAnyLoadNothingIsFound)
{
    const AbstractSettings settings;
    const QString key = QStringLiteral("hardware/usbPath");
    {
        const AssertSpy asserts;
        const LogSpy log;
        EXPECT_EQ(settings.stringSetting(key), QString());
        expectPathReports(asserts, log, key, false, false);
    }
    const AssertSpy asserts;
    const LogSpy log;
    EXPECT_EQ(settings.intOptionalSetting(key, 9), 9);
    expectPathReports(asserts, log, key, false, true);
}

TEST(AbstractSettingsTest, SecondLoadReplacesAndDoesNotMerge)
{
    const AbstractSettings settings;
    AbstractSettings::setSettings(R"({"a": {"old": 1, "both": 1}, "b": 1})");
    AbstractSettings::setSettings(R"({"a": {"both": 2}})");
    EXPECT_EQ(settings.intOptionalSetting(QStringLiteral("a/both"), -1), 2);
    EXPECT_EQ(settings.intOptionalSetting(QStringLiteral("a/old"), -1), -1);
    EXPECT_EQ(settings.intOptionalSetting(QStringLiteral("b"), -1), -1);
}

TEST(AbstractSettingsTest, EveryInstanceSeesTheOneDocument)
{
    const AbstractSettings before;
    AbstractSettings().setSettings(R"({"x": 1})");
    const AbstractSettings after;
    EXPECT_EQ(before.intSetting(QStringLiteral("x")), 1);
    EXPECT_EQ(after.intSetting(QStringLiteral("x")), 1);
    AbstractSettings().setSettings(R"({"x": 2})");
    EXPECT_EQ(before.intSetting(QStringLiteral("x")), 2);
    EXPECT_EQ(after.intSetting(QStringLiteral("x")), 2);
}

TEST(AbstractSettingsTest, ManyThreadsReadAtOnce)
{
    AbstractSettings::setSettings(R"({"a": {"b": {"c": 5}}, "list": [{"id": 2}, {"id": 3}]})");
    std::vector<int> hits(4, 0);
    std::vector<std::thread> readers;
    for (int &hit : hits) {
        readers.emplace_back([&hit] {
            const AbstractSettings settings;
            for (int i = 0; i < 1000; ++i) {
                const QList<int> ids = settings.intListSetting(
                    QStringLiteral("list"), QStringLiteral("id"), nullptr, false);
                if (settings.intSetting(QStringLiteral("a/b/c")) == 5 && ids == QList<int>{2, 3})
                    ++hit;
            }
        });
    }
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(hits, std::vector<int>(4, 1000));
}

TEST(AbstractSettingsTest, ByteOrderMarkIsNoPartOfTheDocument)
{
    AbstractSettings::setSettings("\xEF\xBB\xBF{\"x\": 5}");
    EXPECT_EQ(AbstractSettings().intOptionalSetting(QStringLiteral("x"), -1), 5);
}

namespace {

/// Below a folder that lives as long as the process. It is static because a test that ends its
/// process by exit() leaves nothing behind this way.
QString pathOf(const char *pName)
{
    static const QTemporaryDir s_folder;
    EXPECT_TRUE(s_folder.isValid());
    return s_folder.filePath(QString::fromLatin1(pName));
}

QString writtenFile(const char *pName, const QByteArray &content)
{
    QFile file(pathOf(pName));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(file.write(content), content.size());
    return file.fileName();
}

/// What the process says last when the text does not parse; Qt says why and where.
std::string parseReport(const QByteArray &text)
{
    QJsonParseError error;
    QJsonDocument::fromJson(text, &error);
    EXPECT_NE(error.error, QJsonParseError::NoError);
    return "Release assertion failed: JSON settings parsing failed with error '" +
           error.errorString().toStdString() + "', at character " + std::to_string(error.offset) +
           " [false] in src/abstractsettings, line ";
}

/// Loads; a signal ends the process when that takes longer than any file may.
void loadInTime(const QString &filePath)
{
    alarm(20);
    AbstractSettings::setSettingsFile(filePath);
}

} // namespace

#define EXPECT_PARSE_REPORT(statement, text)                                                       \
    EXPECT_EXIT(statement, ::testing::ExitedWithCode(1), ::testing::HasSubstr(parseReport(text)))

#define EXPECT_INVALID_DOCUMENT_REPORT(statement)                                                  \
    EXPECT_FATAL_ASSERTION(                                                                        \
        statement, "! m_settings.isEmpty()",                                                       \
        "Invalid JSON settings file. JSON document is empty, invalid or doesn't have a "           \
        "single root object",                                                                      \
        "src/abstractsettings")

TEST(AbstractSettingsTest, FileIsReadWhole)
{
    AbstractSettings::setSettingsFile(
        writtenFile("settings.json", "{\r\n  \"hardware\": {\"usbPath\": \"/media\"}\r\n}\r\n"));
    EXPECT_EQ(AbstractSettings().stringSetting(QStringLiteral("hardware/usbPath")),
              QStringLiteral("/media"));
}

TEST(AbstractSettingsTest, FileWithLetterBeyondAsciiInItsNameIsRead)
{
    QFile file(pathOf("") + QStringLiteral("/réglages 1.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"x": 5})");
    file.close();
    AbstractSettings::setSettingsFile(file.fileName());
    EXPECT_EQ(AbstractSettings().intSetting(QStringLiteral("x")), 5);
}

TEST(AbstractSettingsTest, FileOf100MegabytesIsLoaded)
{
    QByteArray content(R"({"first": 1, "texts": [)");
    const QByteArray text = '"' + QByteArray(1000, 'x') + "\",\n";
    while (content.size() < 100'000'000)
        content += text;
    content += R"("end"], "last": 2})";
    QFile file(writtenFile("large.json", content));
    content.clear();

    AbstractSettings::setSettingsFile(file.fileName());
    file.remove();
    const AbstractSettings settings;
    EXPECT_EQ(settings.intSetting(QStringLiteral("first")), 1);
    EXPECT_EQ(settings.intSetting(QStringLiteral("last")), 2);
    const QJsonArray texts = settings.arraySetting(QStringLiteral("texts"), nullptr, false);
    EXPECT_GT(texts.size(), 99'000);
    EXPECT_EQ(texts.last().toString(), QStringLiteral("end"));
}

TEST(AbstractSettingsDeathTest, MissingFileIsReportedWithoutItsPath)
{
    EXPECT_FATAL_ASSERTION(AbstractSettings::setSettingsFile(pathOf("missing.json")),
                           "QFile::exists(filePath)", "Settings file not accessible",
                           "src/abstractsettings");
}

TEST(AbstractSettingsDeathTest, EmptyFileNameIsAMissingFile)
{
    EXPECT_FATAL_ASSERTION(AbstractSettings::setSettingsFile(QString()), "QFile::exists(filePath)",
                           "Settings file not accessible", "src/abstractsettings");
}

TEST(AbstractSettingsDeathTest, LinkToNothingIsAMissingFile)
{
    const QString path = pathOf("link.json");
    ASSERT_TRUE(QFile::link(pathOf("nothing"), path));
    EXPECT_FATAL_ASSERTION(AbstractSettings::setSettingsFile(path), "QFile::exists(filePath)",
                           "Settings file not accessible", "src/abstractsettings");
}

TEST(AbstractSettingsDeathTest, MissingFileEndsTheProcessWhenOneIsLoadedAlready)
{
    AbstractSettings::setSettings(R"({"x": 1})");
    EXPECT_FATAL_ASSERTION(AbstractSettings::setSettingsFile(pathOf("missing.json")),
                           "QFile::exists(filePath)", "Settings file not accessible",
                           "src/abstractsettings");
}

TEST(AbstractSettingsDeathTest, DirectoryReadsAsAnEmptyFile)
{
    EXPECT_PARSE_REPORT(AbstractSettings::setSettingsFile(QDir::tempPath()), QByteArray());
}

TEST(AbstractSettingsDeathTest, FileThatCannotBeReadReadsAsAnEmptyFile)
{
    // A regular file that is there and that nobody can read, root included.
    const QString path = QStringLiteral("/proc/self/clear_refs");
    ASSERT_TRUE(QFile::exists(path));
    EXPECT_PARSE_REPORT(AbstractSettings::setSettingsFile(path), QByteArray());
}

TEST(AbstractSettingsDeathTest, EmptyFileDoesNotParse)
{
    const QString path = writtenFile("empty.json", QByteArray());
    EXPECT_PARSE_REPORT(AbstractSettings::setSettingsFile(path), QByteArray());
}

TEST(AbstractSettingsDeathTest, TruncatedFileDoesNotParse)
{
    const QByteArray half = R"({"hardware": {"usbPath": "/med)";
    const QString path = writtenFile("half.json", half);
    EXPECT_PARSE_REPORT(AbstractSettings::setSettingsFile(path), half);
}

TEST(AbstractSettingsDeathTest, PipeThatNobodyWritesToReadsAsAnEmptyFileAtOnce)
{
    const QString path = pathOf("pipe.json");
    ASSERT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    EXPECT_PARSE_REPORT(loadInTime(path), QByteArray());
}

TEST(AbstractSettingsDeathTest, DeviceWithoutEndReadsAsAnEmptyFileAtOnce)
{
    EXPECT_PARSE_REPORT(loadInTime(QStringLiteral("/dev/zero")), QByteArray());

    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    EXPECT_LT(usage.ru_maxrss, 200 * 1024); // KiB; the sanitizers alone take most of it
}

TEST(AbstractSettingsDeathTest, FileOf256MebibytesIsReadAndOneByteMoreReadsAsAnEmptyFile)
{
    // Zeros follow the object, so that what is read tells that it was.
    const QByteArray head = R"({"x": 1})";
    const qint64 limit = 256 * 1024 * 1024;
    QFile file(writtenFile("sparse.json", head));
    ASSERT_TRUE(file.resize(limit));
    EXPECT_PARSE_REPORT(loadInTime(file.fileName()), head + '\0');
    ASSERT_TRUE(file.resize(limit + 1));
    EXPECT_PARSE_REPORT(loadInTime(file.fileName()), QByteArray());
    EXPECT_NE(parseReport(head + '\0'), parseReport(QByteArray()));
}

struct UnparsableCase
{
    const char *pName;
    QByteArray text;
};

using AbstractSettingsDeathTable = ::testing::TestWithParam<UnparsableCase>;

TEST_P(AbstractSettingsDeathTable, TextThatDoesNotParseEndsTheProcess)
{
    EXPECT_PARSE_REPORT(AbstractSettings::setSettings(GetParam().text), GetParam().text);
}

const UnparsableCase s_unparsableCases[] = {
    {"LoneOpeningBrace", "{"},
    {"Empty", QByteArray()},
    {"OnlyBlanks", " \n\t"},
    {"OnlyByteOrderMark", "\xEF\xBB\xBF"},
    {"Word", "settings"},
    {"OnlyNumber", "5"},
    {"OnlyNull", "null"},
    {"OnlyString", R"("x")"},
    {"TruncatedInKey", R"({"hardw)"},
    {"TruncatedInString", R"({"hardware": {"usbPath": "/med)"},
    {"TruncatedAfterValue", R"({"x": 1)"},
    {"CommaAtTheEnd", R"({"x": 1,})"},
    {"SingleQuotes", "{'x': 1}"},
    {"Comment", "{\"x\": 1} // one"},
    {"TwoObjects", R"({"x": 1}{"y": 2})"},
    {"ZeroByteBehind", QByteArray("{\"x\": 1}\0", 9)},
    {"InvalidUtf8", "{\"x\": \"\xff\xfe\"}"},
    {"Latin1", "{\"x\": \"caf\xe9\"}"},
    {"Utf16", QByteArray("\xff\xfe{\0}\0", 6)},
    {"NestedTooDeeply", QByteArray(100'000, '[')},
    {"ObjectsNestedTooDeeply", QByteArray(R"({"a":)").repeated(100'000)},
};
INSTANTIATE_TEST_SUITE_P(Unparsable, AbstractSettingsDeathTable,
                         ::testing::ValuesIn(s_unparsableCases), caseName);

TEST(AbstractSettingsDeathTest, LoneOpeningBraceEndsTheProcessWithTheParseReport)
{
    EXPECT_PARSE_REPORT(AbstractSettings::setSettings("{"), "{");
}

TEST(AbstractSettingsDeathTest, ArrayAsRootEndsTheProcessWithTheInvalidDocumentReport)
{
    EXPECT_INVALID_DOCUMENT_REPORT(AbstractSettings::setSettings(R"([{"x": 1}])"));
}

TEST(AbstractSettingsDeathTest, EmptyArrayAsRootEndsTheProcessWithTheInvalidDocumentReport)
{
    EXPECT_INVALID_DOCUMENT_REPORT(AbstractSettings::setSettings("[]"));
}

TEST(AbstractSettingsDeathTest, EmptyObjectEndsTheProcessWithTheInvalidDocumentReport)
{
    EXPECT_INVALID_DOCUMENT_REPORT(AbstractSettings::setSettings("{}"));
}

TEST(AbstractSettingsDeathTest, EmptyObjectEndsTheProcessWhenADocumentIsLoadedAlready)
{
    AbstractSettings::setSettings(R"({"x": 1})");
    EXPECT_INVALID_DOCUMENT_REPORT(AbstractSettings::setSettings("{}"));
}

TEST(AbstractSettingsDeathTest, FileWithAnArrayAsRootEndsTheProcessWithTheInvalidDocumentReport)
{
    const QString path = writtenFile("array.json", "[1]");
    EXPECT_INVALID_DOCUMENT_REPORT(AbstractSettings::setSettingsFile(path));
}
