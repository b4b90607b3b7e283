#include "PackageVersion.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Kel
{
namespace Vidorama
{
namespace InstallerLib
{

class PackageVersionTestPeer
{
public:
    static const std::string& FullVersion(const PackageVersion& record)
    {
        return record.fullVersion;
    }
};

} // namespace InstallerLib
} // namespace Vidorama
} // namespace Kel

namespace
{

using Kel::Vidorama::InstallerLib::PackageVersion;
using Kel::Vidorama::InstallerLib::PackageVersionTestPeer;

PackageVersion Make(const char* name, const char* version, const char* revision)
{
    PackageVersion record;
    record.SetName(name);
    record.SetVersion(version);
    record.SetRevision(revision);
    return record;
}

PackageVersion FromTxt(const std::string& text)
{
    std::istringstream stream(text);
    return PackageVersion::ParseTxt(stream);
}

PackageVersion FromJs(const std::string& text)
{
    std::istringstream stream(text);
    return PackageVersion::ParseJs(stream);
}

void ExpectAllEmpty(const PackageVersion& record)
{
    EXPECT_TRUE(record.IsEmpty());
    EXPECT_STREQ("", record.GetName());
    EXPECT_STREQ("", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_STREQ("", record.GetPath());
    EXPECT_STREQ("", record.GetDosVersion());
    EXPECT_FALSE(record.IsDos());
    EXPECT_EQ("", PackageVersionTestPeer::FullVersion(record));
}

// --- construction and copying ---

TEST(PackageVersionTest, DefaultRecordIsEmpty)
{
    ExpectAllEmpty(PackageVersion());
}

TEST(PackageVersionTest, CopyConstructorAndAssignmentCopyEveryField)
{
    PackageVersion original;
    original.SetName("Vidorama");
    original.ParseDosVersion("120501");
    original.SetRevision("77");
    original.SetPath("/mnt/DOS/Versions/120501");

    PackageVersion copy(original);
    PackageVersion assigned;
    assigned = original;
    for (const PackageVersion* record : {&copy, &assigned})
    {
        EXPECT_STREQ("Vidorama", record->GetName());
        EXPECT_STREQ("12.05.01", record->GetVersion());
        EXPECT_STREQ("77", record->GetRevision());
        EXPECT_EQ("12.05.01.77", PackageVersionTestPeer::FullVersion(*record));
        EXPECT_STREQ("/mnt/DOS/Versions/120501", record->GetPath());
        EXPECT_STREQ("120501", record->GetDosVersion());
        EXPECT_TRUE(record->IsDos());
    }
}

TEST(PackageVersionTest, SelfAssignmentKeepsFields)
{
    PackageVersion record = Make("Vidorama", "12.05.01", "3456");
    PackageVersion& alias = record;
    record = alias;
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
}

// --- Linux version grammar ---

TEST(PackageVersionTest, ParseFullVersionWithRevision)
{
    PackageVersion record;
    record.ParseFullVersion("12.05.01.3456");
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("3456", record.GetRevision());
    EXPECT_EQ("12.05.01.3456", PackageVersionTestPeer::FullVersion(record));
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
    EXPECT_FALSE(record.IsDos());
}

TEST(PackageVersionTest, ParseFullVersionWithoutRevisionKeepsPreviousFullVersion)
{
    PackageVersion record;
    record.ParseFullVersion("11.02.03.77");
    record.ParseFullVersion("12.05.01");
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_EQ("11.02.03.77", PackageVersionTestPeer::FullVersion(record));
    EXPECT_STREQ("12.05.01", record.GetVersion(true));
}

TEST(PackageVersionTest, ParseFullVersionWithoutRevisionOnFreshRecordLeavesFullVersionEmpty)
{
    PackageVersion record;
    record.ParseFullVersion("12.05.01");
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_EQ("", PackageVersionTestPeer::FullVersion(record));
}

TEST(PackageVersionTest, ParseFullVersionRevisionZeroMeansNoRevision)
{
    PackageVersion record;
    record.ParseFullVersion("11.02.03.77");
    record.ParseFullVersion("12.05.01.0");
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_EQ("11.02.03.77", PackageVersionTestPeer::FullVersion(record));
    EXPECT_STREQ("12.05.01", record.GetVersion(true));
}

TEST(PackageVersionTest, ParseFullVersionClearsAnEarlierRevision)
{
    PackageVersion record;
    record.ParseFullVersion("12.05.01.3456");
    record.ParseFullVersion("12.05.02");
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_STREQ("12.05.02", record.GetVersion(true));
}

TEST(PackageVersionTest, ParseFullVersionEmptyTextGivesZeroGroups)
{
    PackageVersion record;
    record.ParseFullVersion("");
    EXPECT_STREQ("00.00.00", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_FALSE(record.IsEmpty());
}

TEST(PackageVersionTest, ParseFullVersionNullTextIsTreatedAsEmpty)
{
    PackageVersion record;
    record.ParseFullVersion(nullptr);
    EXPECT_STREQ("00.00.00", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
}

// Each group is read as exactly two characters, separators included: a one-digit group
// swallows the following "." and the scan stops at the next mismatch.
TEST(PackageVersionTest, ParseFullVersionOneCharacterGroupsFollowTheTwoCharacterScan)
{
    PackageVersion record;

    record.ParseFullVersion("1.5.1");
    EXPECT_STREQ("1..00.00", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());

    record.ParseFullVersion("12.5.01");
    EXPECT_STREQ("12.5..00", record.GetVersion());

    record.ParseFullVersion("1.5.1.3456");
    EXPECT_STREQ("1..00.00", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
}

// Only a group cut short by the end of the text holds a single character; it is padded.
TEST(PackageVersionTest, ParseFullVersionPadsAShortLastGroup)
{
    PackageVersion record;

    record.ParseFullVersion("12.05.1");
    EXPECT_STREQ("12.05.01", record.GetVersion());

    record.ParseFullVersion("1");
    EXPECT_STREQ("01.00.00", record.GetVersion());

    record.ParseFullVersion("12.0");
    EXPECT_STREQ("12.00.00", record.GetVersion());
}

TEST(PackageVersionTest, ParseFullVersionIsAlwaysEightCharacters)
{
    for (const char* text : {"", "1", "1.5.1", "12.05.01", "12.05.01.3456", "ab.cd.ef.9", "123456"})
    {
        PackageVersion record;
        record.ParseFullVersion(text);
        EXPECT_EQ(8u, std::string(record.GetVersion()).size()) << text;
    }
}

TEST(PackageVersionTest, ParseFullVersionIgnoresNonNumericRevision)
{
    PackageVersion record;
    record.ParseFullVersion("12.05.01.beta");
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());

    record.ParseFullVersion("12.05.01.");
    EXPECT_STREQ("", record.GetRevision());
}

TEST(PackageVersionTest, ParseFullVersionRevisionIsPrintedInDecimal)
{
    PackageVersion record;
    record.ParseFullVersion("12.05.01.0042");
    EXPECT_STREQ("42", record.GetRevision());
    EXPECT_STREQ("12.05.01.42", record.GetVersion(true));

    record.ParseFullVersion("12.05.01.-7");
    EXPECT_STREQ("-7", record.GetRevision());
    EXPECT_STREQ("12.05.01.-7", record.GetVersion(true));
}

TEST(PackageVersionTest, ParseFullVersionLeavesNameAndPathAlone)
{
    PackageVersion record;
    record.SetName("Vidorama");
    record.SetPath("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz");
    record.ParseFullVersion("12.05.01.3456");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("/mnt/USB/Packages/Vidorama_12.05.01.3456.tar.gz", record.GetPath());
}

// --- DOS version grammar ---

TEST(PackageVersionTest, ParseDosVersion)
{
    PackageVersion record;
    record.ParseDosVersion("120501");
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("120501", record.GetDosVersion());
    EXPECT_TRUE(record.IsDos());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_STREQ("12.05.01", record.GetVersion(true));
}

TEST(PackageVersionTest, ParseDosVersionTouchesNeitherNamePathNorFullVersion)
{
    PackageVersion record;
    record.ParseFullVersion("11.02.03.77");
    record.SetName("Vidorama");
    record.SetPath("/mnt/DOS/Versions/120501");
    record.ParseDosVersion("120501");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("/mnt/DOS/Versions/120501", record.GetPath());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_EQ("11.02.03.77", PackageVersionTestPeer::FullVersion(record));
}

TEST(PackageVersionTest, ParseDosVersionShortTextPadsGroups)
{
    PackageVersion record;
    record.ParseDosVersion("12050");
    EXPECT_STREQ("12.05.00", record.GetVersion());
    EXPECT_STREQ("12050", record.GetDosVersion());

    record.ParseDosVersion("1");
    EXPECT_STREQ("01.00.00", record.GetVersion());

    record.ParseDosVersion("");
    EXPECT_STREQ("00.00.00", record.GetVersion());
    EXPECT_STREQ("", record.GetDosVersion());
    EXPECT_TRUE(record.IsDos());
}

TEST(PackageVersionTest, ParseDosVersionKeepsTheRawTextWhole)
{
    PackageVersion record;
    record.ParseDosVersion("12050199");
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("12050199", record.GetDosVersion());
}

// --- accessors ---

TEST(PackageVersionTest, GetVersionFullWithoutRevisionReturnsShortVersion)
{
    PackageVersion record;
    record.SetVersion("12.05.01");
    EXPECT_STREQ("12.05.01", record.GetVersion(true));
    EXPECT_STREQ("12.05.01", record.GetVersion(false));
}

TEST(PackageVersionTest, GetVersionFullWithRevision)
{
    PackageVersion record = Make("Vidorama", "12.05.01", "3456");
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
    EXPECT_STREQ("12.05.01", record.GetVersion(false));
    EXPECT_STREQ("12.05.01", record.GetVersion());
}

TEST(PackageVersionTest, SetVersionUpdatesFullVersionOnlyWithRevision)
{
    PackageVersion record;
    record.SetVersion("12.05.01");
    EXPECT_EQ("", PackageVersionTestPeer::FullVersion(record));

    record.SetRevision("3456");
    EXPECT_EQ("12.05.01.3456", PackageVersionTestPeer::FullVersion(record));

    record.SetVersion("12.05.02");
    EXPECT_EQ("12.05.02.3456", PackageVersionTestPeer::FullVersion(record));
    EXPECT_STREQ("12.05.02.3456", record.GetVersion(true));
}

TEST(PackageVersionTest, SetRevisionEmptyLeavesFullVersion)
{
    PackageVersion record = Make("Vidorama", "12.05.01", "3456");
    record.SetRevision("");
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_EQ("12.05.01.3456", PackageVersionTestPeer::FullVersion(record));
    EXPECT_STREQ("12.05.01", record.GetVersion(true));

    record.SetVersion("13.00.00");
    EXPECT_EQ("12.05.01.3456", PackageVersionTestPeer::FullVersion(record));
}

TEST(PackageVersionTest, SetRevisionOnRecordWithoutVersion)
{
    PackageVersion record;
    record.SetRevision("5");
    EXPECT_EQ(".5", PackageVersionTestPeer::FullVersion(record));
}

TEST(PackageVersionTest, SettersAcceptNull)
{
    PackageVersion record = Make("Vidorama", "12.05.01", "3456");
    record.SetPath("/somewhere");
    record.SetName(nullptr);
    record.SetPath(nullptr);
    record.SetRevision(nullptr);
    record.SetVersion(nullptr);
    EXPECT_STREQ("", record.GetName());
    EXPECT_STREQ("", record.GetPath());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_STREQ("", record.GetVersion());
}

TEST(PackageVersionTest, SetDos)
{
    PackageVersion record;
    record.SetDos(true);
    EXPECT_TRUE(record.IsDos());
    record.SetDos(false);
    EXPECT_FALSE(record.IsDos());
}

TEST(PackageVersionTest, EmptyNeedsBothNameAndVersionEmpty)
{
    PackageVersion record;
    record.SetRevision("3456");
    record.SetPath("/mnt/SYS/Versions/x");
    record.SetDos(true);
    EXPECT_TRUE(record.IsEmpty());

    PackageVersion named;
    named.SetName("Vidorama");
    EXPECT_FALSE(named.IsEmpty());

    PackageVersion versioned;
    versioned.SetVersion("12.05.01");
    EXPECT_FALSE(versioned.IsEmpty());
}

TEST(PackageVersionTest, RemoveLeadingCarriageReturnStripsOneTrailingCarriageReturn)
{
    std::string text;
    PackageVersion::removeLeadingCarriageReturn(text);
    EXPECT_EQ("", text);

    text = "a\r";
    PackageVersion::removeLeadingCarriageReturn(text);
    EXPECT_EQ("a", text);

    text = "a\r\r";
    PackageVersion::removeLeadingCarriageReturn(text);
    EXPECT_EQ("a\r", text);

    text = "\ra";
    PackageVersion::removeLeadingCarriageReturn(text);
    EXPECT_EQ("\ra", text);

    text = "\r";
    PackageVersion::removeLeadingCarriageReturn(text);
    EXPECT_EQ("", text);

    text = "a\n";
    PackageVersion::removeLeadingCarriageReturn(text);
    EXPECT_EQ("a\n", text);
}

// --- text manifest ---

TEST(PackageVersionTest, ParseTxt)
{
    PackageVersion record = FromTxt("Vidorama\n12.05.01.3456\n");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("3456", record.GetRevision());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
    EXPECT_STREQ("", record.GetPath());
    EXPECT_FALSE(record.IsDos());
}

TEST(PackageVersionTest, ParseTxtCrLfGivesSameRecordAsLf)
{
    PackageVersion lf = FromTxt("Vidorama\n12.05.01.3456\n");
    PackageVersion crlf = FromTxt("Vidorama\r\n12.05.01.3456\r\n");
    EXPECT_EQ(lf, crlf);
    EXPECT_STREQ(lf.GetName(), crlf.GetName());
    EXPECT_STREQ(lf.GetVersion(), crlf.GetVersion());
    EXPECT_STREQ(lf.GetRevision(), crlf.GetRevision());
    EXPECT_STREQ(lf.GetVersion(true), crlf.GetVersion(true));
}

TEST(PackageVersionTest, ParseTxtWithoutFinalNewLine)
{
    PackageVersion record = FromTxt("Vidorama\r\n12.05.01.3456");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
}

TEST(PackageVersionTest, ParseTxtMissingSecondLine)
{
    for (const char* text : {"Vidorama\n", "Vidorama", "Vidorama\r\n"})
    {
        PackageVersion record = FromTxt(text);
        EXPECT_STREQ("Vidorama", record.GetName()) << text;
        EXPECT_STREQ("", record.GetVersion()) << text;
        EXPECT_STREQ("", record.GetRevision()) << text;
        EXPECT_FALSE(record.IsEmpty()) << text;
    }
}

TEST(PackageVersionTest, ParseTxtEmptyStreamGivesEmptyRecord)
{
    ExpectAllEmpty(FromTxt(""));
}

TEST(PackageVersionTest, ParseTxtEmptySecondLineIsParsed)
{
    PackageVersion record = FromTxt("Vidorama\n\n");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("00.00.00", record.GetVersion());
}

TEST(PackageVersionTest, ParseTxtIgnoresFurtherLines)
{
    PackageVersion record = FromTxt("Vidorama\n12.05.01.3456\nsomething else\n");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
}

// --- JSON manifest ---

TEST(PackageVersionTest, ParseJs)
{
    PackageVersion record =
        FromJs(R"({ "name": "Vidorama", "version": "12.05.01", "revision": "3456" })");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("3456", record.GetRevision());
    EXPECT_STREQ("12.05.01.3456", record.GetVersion(true));
    EXPECT_STREQ("", record.GetPath());
    EXPECT_FALSE(record.IsDos());
}

TEST(PackageVersionTest, ParseJsWithoutRevision)
{
    PackageVersion record = FromJs(R"({ "name": "Vidorama", "version": "12.05.01" })");
    EXPECT_STREQ("12.05.01", record.GetVersion(true));
    EXPECT_EQ("", PackageVersionTestPeer::FullVersion(record));
}

TEST(PackageVersionTest, ParseJsKeepsVersionTextAsWritten)
{
    PackageVersion record = FromJs(R"({ "name": "Vidorama", "version": "9.0" })");
    EXPECT_STREQ("9.0", record.GetVersion());

    PackageVersion raw = FromJs(R"({ "name": "Vidorama", "version": "120501", "revision": "0" })");
    EXPECT_STREQ("120501", raw.GetVersion());
    EXPECT_STREQ("0", raw.GetRevision());
    EXPECT_STREQ("120501.0", raw.GetVersion(true));
}

TEST(PackageVersionTest, ParseJsUnnormalisedVersionSortsByteWise)
{
    PackageVersion nine = FromJs(R"({ "name": "Vidorama", "version": "9.0" })");
    PackageVersion twelve = FromJs(R"({ "name": "Vidorama", "version": "12.05.01" })");
    EXPECT_TRUE(nine > twelve);
    EXPECT_FALSE(twelve > nine);
    EXPECT_TRUE(twelve < nine);

    std::vector<PackageVersion> list{twelve, nine};
    std::sort(list.begin(), list.end(),
              [](const PackageVersion& a, const PackageVersion& b) { return a > b; });
    EXPECT_STREQ("9.0", list[0].GetVersion());
    EXPECT_STREQ("12.05.01", list[1].GetVersion());
}

TEST(PackageVersionTest, ParseJsInvalidJsonGivesEmptyRecord)
{
    ExpectAllEmpty(FromJs(R"({ "name": "Vidorama", "version": )"));
    ExpectAllEmpty(FromJs("not json at all"));
    ExpectAllEmpty(FromJs(""));
}

TEST(PackageVersionTest, ParseJsNonObjectRootGivesEmptyRecord)
{
    ExpectAllEmpty(FromJs(R"([ "Vidorama", "12.05.01", "3456" ])"));
    ExpectAllEmpty(FromJs(R"([ { "name": "Vidorama", "version": "12.05.01" } ])"));
    ExpectAllEmpty(FromJs(R"("Vidorama")"));
    ExpectAllEmpty(FromJs("42"));
    ExpectAllEmpty(FromJs("null"));
}

TEST(PackageVersionTest, ParseJsIgnoresMembersThatAreNotStrings)
{
    PackageVersion record =
        FromJs(R"({ "name": "Vidorama", "version": "12.05.01", "revision": 3456 })");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01", record.GetVersion());
    EXPECT_STREQ("", record.GetRevision());
    EXPECT_STREQ("12.05.01", record.GetVersion(true));
    EXPECT_EQ("", PackageVersionTestPeer::FullVersion(record));

    PackageVersion others =
        FromJs(R"({ "name": null, "version": 12.5, "revision": ["3456"], "extra": "x" })");
    EXPECT_TRUE(others.IsEmpty());
    EXPECT_STREQ("", others.GetRevision());
}

TEST(PackageVersionTest, ParseJsAcceptsComments)
{
    PackageVersion record = FromJs("// manifest\n{ \"name\": \"Vidorama\", /* base */ "
                                   "\"version\": \"12.05.01\", \"revision\": \"7\" }\n");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01.7", record.GetVersion(true));
}

TEST(PackageVersionTest, ParseJsWithCrLfLineEnds)
{
    PackageVersion record =
        FromJs("{\r\n  \"name\": \"Vidorama\",\r\n  \"version\": \"12.05.01\"\r\n}\r\n");
    EXPECT_STREQ("Vidorama", record.GetName());
    EXPECT_STREQ("12.05.01", record.GetVersion());
}

TEST(PackageVersionTest, ParseJsTooDeeplyNestedDoesNotThrow)
{
    std::string deep(5000, '[');
    PackageVersion record;
    EXPECT_NO_THROW(record = FromJs(deep));
    ExpectAllEmpty(record);
}

// --- equality ---

TEST(PackageVersionTest, EqualityComparesNameVersionRevisionOnly)
{
    PackageVersion a = Make("Vidorama", "12.05.01", "3456");
    PackageVersion b = Make("Vidorama", "12.05.01", "3456");
    b.SetPath("/mnt/SYS/Versions/other");
    b.SetDos(true);
    b.ParseDosVersion("999999");
    b.SetVersion("12.05.01");
    b.SetRevision("3456");
    EXPECT_STREQ("999999", b.GetDosVersion());
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
}

TEST(PackageVersionTest, EqualityIgnoresStoredFullVersion)
{
    PackageVersion a;
    a.SetName("Vidorama");
    a.ParseFullVersion("11.02.03.77");
    a.ParseFullVersion("12.05.01");

    PackageVersion b;
    b.SetName("Vidorama");
    b.ParseFullVersion("12.05.01");

    ASSERT_NE(PackageVersionTestPeer::FullVersion(a), PackageVersionTestPeer::FullVersion(b));
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
}

TEST(PackageVersionTest, InequalityOnAnyOfNameVersionRevision)
{
    PackageVersion base = Make("Vidorama", "12.05.01", "3456");
    for (const PackageVersion& other :
         {Make("Vidorama_Base", "12.05.01", "3456"), Make("Vidorama", "12.05.02", "3456"),
          Make("Vidorama", "12.05.01", "3457"), Make("Vidorama", "12.05.01", "")})
    {
        EXPECT_FALSE(base == other);
        EXPECT_TRUE(base != other);
    }
}

// --- ordering ---

TEST(PackageVersionTest, LessByNameThenVersionThenRevision)
{
    EXPECT_TRUE(Make("A", "12.05.01", "1") < Make("B", "12.05.01", "1"));
    EXPECT_TRUE(Make("A", "12.05.01", "9") < Make("A", "12.05.02", "1"));
    EXPECT_TRUE(Make("A", "12.05.01", "1") < Make("A", "12.05.01", "2"));
    EXPECT_FALSE(Make("A", "12.05.01", "1") < Make("A", "12.05.01", "1"));
    EXPECT_FALSE(Make("A", "12.05.02", "1") < Make("A", "12.05.01", "9"));
}

TEST(PackageVersionTest, GreaterIsTheMirror)
{
    EXPECT_TRUE(Make("B", "12.05.01", "1") > Make("A", "12.05.01", "1"));
    EXPECT_TRUE(Make("A", "12.05.02", "1") > Make("A", "12.05.01", "9"));
    EXPECT_TRUE(Make("A", "12.05.01", "2") > Make("A", "12.05.01", "1"));
    EXPECT_FALSE(Make("A", "12.05.01", "1") > Make("A", "12.05.01", "1"));
    EXPECT_FALSE(Make("A", "12.05.01", "9") > Make("A", "12.05.02", "1"));
}

TEST(PackageVersionTest, NameDecidesBeforeVersion)
{
    PackageVersion zeta = Make("Zeta", "01.00.00", "");
    PackageVersion alpha = Make("Alpha", "99.00.00", "");
    EXPECT_TRUE(zeta > alpha);
    EXPECT_FALSE(zeta < alpha);
    EXPECT_TRUE(alpha < zeta);
    EXPECT_FALSE(alpha > zeta);
}

TEST(PackageVersionTest, ThirdClauseIgnoresNamesForLess)
{
    PackageVersion a = Make("Zeta", "12.05.01", "1");
    PackageVersion b = Make("Alpha", "12.05.01", "2");
    EXPECT_TRUE(a < b);
    EXPECT_TRUE(b < a);
}

TEST(PackageVersionTest, ThirdClauseIgnoresNamesForGreater)
{
    PackageVersion a = Make("Alpha", "12.05.01", "2");
    PackageVersion b = Make("Zeta", "12.05.01", "1");
    EXPECT_TRUE(a > b);
    EXPECT_TRUE(b > a);
}

TEST(PackageVersionTest, ThirdClauseDoesNotApplyWhenVersionsDiffer)
{
    PackageVersion a = Make("Zeta", "12.05.01", "1");
    PackageVersion b = Make("Alpha", "12.05.02", "2");
    EXPECT_FALSE(a < b);
    EXPECT_TRUE(b < a);
    EXPECT_TRUE(a > b);
    EXPECT_FALSE(b > a);
}

TEST(PackageVersionTest, ComparisonsAreByteWise)
{
    // Revisions are not padded: "999" is above "1000".
    EXPECT_TRUE(Make("A", "12.05.01", "999") > Make("A", "12.05.01", "1000"));
    EXPECT_TRUE(Make("A", "12.05.01", "1000") < Make("A", "12.05.01", "999"));
    // A prefix sorts first.
    EXPECT_TRUE(Make("A", "12.05.01", "") < Make("A", "12.05.01", "1"));
    EXPECT_TRUE(Make("Vidorama", "12.05.01", "") < Make("Vidorama_Base", "12.05.01", ""));
    // Upper case before lower case; bytes above 127 after ASCII.
    EXPECT_TRUE(Make("Z", "12.05.01", "") < Make("a", "12.05.01", ""));
    EXPECT_TRUE(Make("z", "12.05.01", "") < Make("\xC3\xA9", "12.05.01", ""));
}

TEST(PackageVersionTest, SortingWithGreaterPutsHighestFirst)
{
    std::vector<PackageVersion> list{
        Make("Vidorama", "12.05.01", "3456"), Make("Vidorama", "13.01.00", "12"),
        Make("Vidorama", "12.05.01", "4000"), Make("Vidorama", "09.10.02", ""),
        Make("Vidorama", "12.05.01", ""),     Make("Vidorama", "13.01.00", "2")};
    std::sort(list.begin(), list.end(),
              [](const PackageVersion& a, const PackageVersion& b) { return a > b; });

    const std::vector<std::string> expected{"13.01.00.2",    "13.01.00.12", "12.05.01.4000",
                                            "12.05.01.3456", "12.05.01",    "09.10.02"};
    ASSERT_EQ(expected.size(), list.size());
    for (size_t i = 0; i < expected.size(); ++i)
    {
        EXPECT_EQ(expected[i], list[i].GetVersion(true)) << i;
    }
}

TEST(PackageVersionTest, SortingMixesDosAndLinuxByName)
{
    PackageVersion dos;
    dos.SetName("Vidorama");
    dos.ParseDosVersion("140101");
    PackageVersion linuxVersion = Make("Vidorama", "12.05.01", "3456");
    PackageVersion base = Make("Vidorama_Base", "11.00.00", "1");

    std::vector<PackageVersion> list{linuxVersion, base, dos};
    std::sort(list.begin(), list.end(),
              [](const PackageVersion& a, const PackageVersion& b) { return a > b; });
    EXPECT_STREQ("Vidorama_Base", list[0].GetName());
    EXPECT_TRUE(list[1].IsDos());
    EXPECT_STREQ("12.05.01", list[2].GetVersion());
}

} // namespace

namespace
{

using Kel::Vidorama::InstallerLib::PackageVersion;

TEST(PackageVersionLabel, ALinuxVersionIsShownAsItsNumberAlone)
{
    PackageVersion linuxVersion;
    linuxVersion.SetName("Vidorama");
    linuxVersion.ParseFullVersion("12.05.01.3456");
    EXPECT_EQ(linuxVersion.GetVersionLabel(false), "12.05.01");
    EXPECT_EQ(linuxVersion.GetVersionLabel(true), "12.05.01.3456");
    // What the label adds nothing to: the version texts themselves.
    EXPECT_STREQ(linuxVersion.GetVersion(false), "12.05.01");
    EXPECT_STREQ(linuxVersion.GetVersion(true), "12.05.01.3456");
}

TEST(PackageVersionLabel, ADosVersionOfTheSameNumberIsToldApart)
{
    PackageVersion linuxVersion;
    linuxVersion.SetName("Vidorama");
    linuxVersion.ParseFullVersion("12.05.01");
    PackageVersion dosVersion;
    dosVersion.SetName("Vidorama");
    dosVersion.SetDos(true);
    dosVersion.ParseDosVersion("120501");
    EXPECT_STREQ(dosVersion.GetVersion(false), linuxVersion.GetVersion(false));
    EXPECT_EQ(dosVersion.GetVersionLabel(false), "12.05.01 (DOS)");
    EXPECT_EQ(dosVersion.GetVersionLabel(true), "12.05.01 (DOS)");
    EXPECT_NE(dosVersion.GetVersionLabel(false), linuxVersion.GetVersionLabel(false));
    EXPECT_STREQ(dosVersion.GetVersion(false), "12.05.01");
}

TEST(PackageVersionLabel, AnEmptyVersionHasAnEmptyLabel)
{
    EXPECT_EQ(PackageVersion().GetVersionLabel(true), "");
}

} // namespace
