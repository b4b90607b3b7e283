#include "GzipStream.h"
#include "ScratchDirectory.h"
#include "TestArchive.h"

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace
{

using Kel::Vidorama::InstallerLib::GzipStream;
using TestSupport::ScratchDirectory;
using TestSupport::WriteFile;

// One gzip member holding text, as gzip writes it.
std::string GzipMember(const std::string& text)
{
    z_stream stream = {};
    EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string out(deflateBound(&stream, static_cast<uLong>(text.size())) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

std::string Text(std::size_t lines, const std::string& word)
{
    std::string text;
    for (std::size_t i = 0; i < lines; ++i)
        text += word + " " + std::to_string(i * 7919 % 100003) + "\n";
    return text;
}

struct ReaderFree
{
    void operator()(archive* reader) const { archive_read_free(reader); }
};

// What the reader sees of the file: the inflated bytes, whole, through the
// raw format (no tar), and whether the stream then proves whole.
struct Outcome
{
    bool opened = false;
    bool readFine = false;
    std::string bytes;
    bool whole = false;
    // What the stream says of the file afterwards.
    bool damaged = false;
    bool readFailed = false;
};

// Damage may show as soon as the reader looks at the start (a small stream is
// read to its end at once) or only at the end: either way it is not accepted.
bool Accepted(const Outcome& outcome)
{
    return outcome.opened && outcome.readFine && outcome.whole;
}

Outcome ReadThrough(const std::string& path)
{
    Outcome outcome;
    GzipStream stream;
    std::unique_ptr<archive, ReaderFree> reader(archive_read_new());
    archive_read_support_format_raw(reader.get());
    outcome.opened = stream.OpenFor(reader.get(), path);
    archive_entry* entry = nullptr;
    if (outcome.opened && archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK)
    {
        char block[4096];
        la_ssize_t count = 0;
        while ((count = archive_read_data(reader.get(), block, sizeof(block))) > 0)
            outcome.bytes.append(block, static_cast<std::size_t>(count));
        outcome.readFine = count == 0;
        outcome.whole = stream.Finish();
    }
    outcome.damaged = stream.IsDamaged();
    outcome.readFailed = stream.ReadFailed();
    return outcome;
}

class GzipStreamTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_FALSE(scratch.path.empty()); }

    std::string Write(const std::string& bytes)
    {
        const std::string path = scratch.Join("package.tar.gz");
        WriteFile(path, bytes);
        return path;
    }

    ScratchDirectory scratch{"GzipStreamTest"};
};

TEST_F(GzipStreamTest, OneMemberReadsBackWholeAndProvesWhole)
{
    const std::string text = Text(20000, "frame");
    const Outcome outcome = ReadThrough(Write(GzipMember(text)));
    ASSERT_TRUE(outcome.opened);
    EXPECT_TRUE(outcome.readFine);
    EXPECT_EQ(outcome.bytes, text);
    EXPECT_TRUE(outcome.whole);
    EXPECT_FALSE(outcome.damaged);
    EXPECT_FALSE(outcome.readFailed);
}

TEST_F(GzipStreamTest, MembersOneAfterTheOtherReadAsOneStream)
{
    // gzip -dc reads concatenated members as one stream; so does the package reader.
    const std::string first = Text(3000, "first");
    const std::string second = Text(3000, "second");
    const Outcome outcome = ReadThrough(Write(GzipMember(first) + GzipMember(second)));
    ASSERT_TRUE(outcome.opened);
    EXPECT_EQ(outcome.bytes, first + second);
    EXPECT_TRUE(outcome.whole);
}

TEST_F(GzipStreamTest, AWrongChecksumIsNoticed)
{
    std::string bytes = GzipMember(Text(5000, "frame"));
    bytes[bytes.size() - 8] = static_cast<char>(bytes[bytes.size() - 8] ^ 0x01); // the CRC-32
    EXPECT_FALSE(Accepted(ReadThrough(Write(bytes))));
}

TEST_F(GzipStreamTest, AWrongLengthIsNoticed)
{
    std::string bytes = GzipMember(Text(5000, "frame"));
    bytes[bytes.size() - 4] = static_cast<char>(bytes[bytes.size() - 4] ^ 0x01); // ISIZE
    EXPECT_FALSE(Accepted(ReadThrough(Write(bytes))));
}

TEST_F(GzipStreamTest, EveryCutOfTheTrailerIsNoticed)
{
    const std::string bytes = GzipMember(Text(5000, "frame"));
    for (std::size_t cut = 1; cut <= 8; ++cut)
        EXPECT_FALSE(Accepted(ReadThrough(Write(bytes.substr(0, bytes.size() - cut))))) << cut;
}

TEST_F(GzipStreamTest, BytesAfterTheLastMemberAreDamage)
{
    // GNU tar refuses such a package too ("trailing garbage"), through gzip's status.
    const std::string bytes = GzipMember(Text(5000, "frame")) + "garbage after the stream";
    EXPECT_FALSE(Accepted(ReadThrough(Write(bytes))));
}

TEST_F(GzipStreamTest, AMemberWithAReservedFlagIsDamage)
{
    // Flag bits 5 to 7 mean nothing to any gzip; gzip -t and zlib refuse such a member,
    // in the first member and in a later one alike.
    const std::string second = GzipMember(Text(3000, "second"));
    for (const unsigned char bit : {0x20, 0x40, 0x80})
    {
        std::string first = GzipMember(Text(3000, "first"));
        first[3] = static_cast<char>(first[3] | bit);
        EXPECT_FALSE(Accepted(ReadThrough(Write(first)))) << int(bit);
        std::string later = second;
        later[3] = static_cast<char>(later[3] | bit);
        EXPECT_FALSE(Accepted(ReadThrough(Write(GzipMember(Text(3000, "first")) + later))))
            << int(bit);
    }
    EXPECT_TRUE(Accepted(ReadThrough(Write(GzipMember(Text(3000, "first")) + second))));
}

TEST_F(GzipStreamTest, AFileThatIsNotGzipGivesNoBytes)
{
    const Outcome outcome = ReadThrough(Write(Text(100, "plain text, not gzip")));
    EXPECT_TRUE(outcome.bytes.empty());
    EXPECT_FALSE(Accepted(outcome));
}

TEST_F(GzipStreamTest, AMissingOrEmptyFileDoesNotOpen)
{
    EXPECT_FALSE(ReadThrough(scratch.Join("missing.tar.gz")).opened);
    EXPECT_FALSE(ReadThrough(Write("")).opened);
}

// Damage is told apart from a file that cannot be read: only the first is the package's
// fault.
TEST_F(GzipStreamTest, DamageOfAnyKindIsSaidToBeDamage)
{
    std::string checksum = GzipMember(Text(5000, "frame"));
    checksum[checksum.size() - 8] = static_cast<char>(checksum[checksum.size() - 8] ^ 0x01);
    const std::string whole = GzipMember(Text(5000, "frame"));
    std::string middle = whole;
    for (std::size_t i = middle.size() / 2; i < middle.size() / 2 + 8; ++i)
        middle[i] = static_cast<char>(middle[i] ^ 0x5a);
    for (const std::string& bytes :
         {checksum, middle, whole.substr(0, whole.size() / 2), whole.substr(0, whole.size() - 1),
          whole + "garbage after the stream", Text(100, "plain text, not gzip"), std::string()})
    {
        const Outcome outcome = ReadThrough(Write(bytes));
        EXPECT_FALSE(Accepted(outcome)) << bytes.size();
        EXPECT_TRUE(outcome.damaged) << bytes.size();
        EXPECT_FALSE(outcome.readFailed) << bytes.size();
    }
}

TEST_F(GzipStreamTest, AFileThatCannotBeReadIsNotSaidToBeDamaged)
{
    const Outcome missing = ReadThrough(scratch.Join("missing.tar.gz"));
    EXPECT_FALSE(missing.damaged);
    EXPECT_FALSE(missing.readFailed);
    // A directory opens, but reading it fails.
    const Outcome directory = ReadThrough(scratch.path);
    EXPECT_FALSE(directory.opened);
    EXPECT_FALSE(directory.damaged);
    EXPECT_TRUE(directory.readFailed);
}

} // namespace
