#include "vfile/vfile_builder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/disk_image.h"
#include "support/memory_file.h"
#include "support/scratch.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfilelimit.h"
#include "vfile/vfileoffset.h"
#include "vfile/vfilesparse1.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

using test::MemoryFile;
using test::pattern;
using test::putBigEndian;
using test::putText;

KString const BAD = "Bad VFile Spec";

struct Parsed {
    XmlTree tree;
    explicit Parsed(std::string const& text) { EXPECT_TRUE(tree.parse(text)) << text; }
    operator XmlNode() const { return tree.root(); }
};
std::string vfile(std::string const& form) { return "<VFile>" + form + "</VFile>"; }
std::string partitionForm(std::string const& start, std::string const& length, std::string const& inner) {
    return "<Partition><Start>" + start + "</Start><Length>" + length + "</Length>" + inner + "</Partition>";
}
std::string const THIS = vfile("<ThisFile></ThisFile>");

struct VFileBuilderTest : testing::Test {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("clip");
    ScratchFolder folder;

    Opened<VFileObject> build(std::string const& text, KString const& header_path = "clip", bool read_only = false) {
        return buildVFile(Parsed(text), read_only, header_path, memory);
    }
    void putGrow(std::uint64_t length) {
        memory->resize(4096);
        putText(*memory, 0, "KLVNGROW");
        putBigEndian(*memory, 8, length);
    }
    void putFile(std::filesystem::path const& path, std::size_t size) {
        std::ofstream(path, std::ios::binary) << std::string(size, 'x');
    }
};

TEST_F(VFileBuilderTest, ThisFileIsTheFileOfTheHeader) {
    auto const built = build(THIS);
    EXPECT_EQ(built.error, KString());
    EXPECT_EQ(built.file, memory);
}

TEST_F(VFileBuilderTest, WithoutAFileOfTheHeaderThisFileIsNeitherAnErrorNorAFile) {
    auto const built = buildVFile(Parsed(THIS), false, "clip", nullptr);
    EXPECT_EQ(built.error, KString());
    EXPECT_EQ(built.file, nullptr);
    for (std::string const& form :
         {"<Grow>" + THIS + "</Grow>", "<Sparse>" + THIS + "</Sparse>", "<Sparse2>" + THIS + "</Sparse2>",
          partitionForm("0", "1", THIS), partitionForm("1", "1", THIS)})
        EXPECT_EQ(buildVFile(Parsed(vfile(form)), false, "clip", nullptr).error, BAD) << form;
}

TEST_F(VFileBuilderTest, WhatDescribesNoVirtualFileIsRefused) {
    for (std::string const& text :
         {std::string("<File><ThisFile></ThisFile></File>"), std::string("<vfile><ThisFile></ThisFile></vfile>"),
          vfile(""), vfile("<Sparse3></Sparse3>"), vfile("<thisfile></thisfile>"), vfile("<Grow></Grow>"),
          vfile("<Sparse></Sparse>"), vfile("<Sparse2></Sparse2>"), vfile("<Grow><ThisFile></ThisFile></Grow>"),
          vfile("<Partition><Start>0</Start><Length>1</Length></Partition>"),
          vfile("<Grow>" + vfile("") + "</Grow>")}) {
        auto const built = build(text);
        EXPECT_EQ(built.error, BAD) << text;
        EXPECT_EQ(built.file, nullptr);
    }
    EXPECT_EQ(buildVFile(XmlNode(), false, "clip", memory).error, BAD);
}

TEST_F(VFileBuilderTest, TheParentsChildNamedVFileIsBuilt) {
    EXPECT_EQ(
        buildNestedVFile(Parsed("<TrackMeta><TrackType>x</TrackType>" + THIS + "</TrackMeta>"), false, "clip", memory)
            .file,
        memory);
    EXPECT_EQ(buildNestedVFile(Parsed("<TrackMeta><TrackType>x</TrackType></TrackMeta>"), false, "clip", memory).error,
              BAD);
}

// --- Order of the forms ---

TEST_F(VFileBuilderTest, OfSeveralFormsTheFirstInTheFixedOrderCounts) {
    putGrow(77);
    putFile(folder.path / "a.dat", 8192);
    KString const header = folder.file("x.xml");
    std::string const grow = "<Grow><MinLength>1</MinLength>" + THIS + "</Grow>", name = "<FileName>a.dat</FileName>";
    auto const named = build(vfile(grow + name), header);
    EXPECT_EQ(named.error, KString());
    EXPECT_NE(std::dynamic_pointer_cast<VFileFile>(named.file), nullptr);
    EXPECT_EQ(build(vfile(grow + partitionForm("0", "5", THIS))).file->length(), 5u)
        << "a partition before a grow file";
    EXPECT_EQ(build(vfile(grow + "<ThisFile></ThisFile>" + partitionForm("0", "5", THIS))).file, memory);
    memory->resize(65536);
    std::string const sparse2 = "<Sparse2>" + THIS + "</Sparse2>", sparse1 = "<Sparse>" + THIS + "</Sparse>";
    EXPECT_EQ(build(vfile("<ThisFile></ThisFile>" + sparse2)).error, KString("Bad superblock"));
    EXPECT_EQ(build(vfile(sparse2 + sparse1)).error, KString("Bad sparse header magic number"));
    EXPECT_EQ(build(vfile(sparse1 + name), header).file, named.file);
}

// --- File names ---

TEST_F(VFileBuilderTest, AFileNameIsTakenFromTheFolderOfTheHeader) {
    putFile(folder.path / "a.dat", 8192);
    auto const built = build(vfile("<FileName>a.dat</FileName>"), folder.file("x.xml"), true);
    ASSERT_EQ(built.error, KString());
    EXPECT_EQ(built.file->length(), 8192u);
    EXPECT_NE(std::dynamic_pointer_cast<VFileFile>(built.file), nullptr);
}

TEST_F(VFileBuilderTest, ABackslashInTheHeadersPathDecidesOnEveryHost) {
    // Where the backslash is no separator it is a part of the name; the joined text is the same.
    std::filesystem::create_directory(folder.path / "dir");
    std::filesystem::create_directory(folder.path / "dir\\");
    putFile(folder.path / "dir\\a.dat", 4096);
    putFile(folder.path / "dir\\" / "b.dat", 8192);
    KString const header = folder.file("dir\\x.xml");
    auto const beside = build(vfile("<FileName>a.dat</FileName>"), header);
    ASSERT_EQ(beside.error, KString());
    EXPECT_EQ(beside.file->name(), folder.file("dir\\a.dat"));
    // KEEP: a text that is an absolute path is joined all the same.
    auto const absolute = build(vfile("<FileName>/b.dat</FileName>"), header);
    ASSERT_EQ(absolute.error, KString());
    EXPECT_EQ(absolute.file->name(), KString((folder.path / "dir").string() + "\\/b.dat"));
    EXPECT_EQ(absolute.file->length(), 8192u);
}

TEST_F(VFileBuilderTest, PlaceholdersInFileNamesAreText) {
    putFile(folder.path / "%2", 4096);
    EXPECT_EQ(build(vfile("<FileName>%2</FileName>"), folder.file("%1.xml")).error, KString());
}

TEST_F(VFileBuilderTest, AFileNameWithAZeroNamesNoOtherFile) {
    putFile(folder.path / "a.dat", 4096);
    std::string const text = "<FileName>a.dat" + std::string(1, '\0') + "tail</FileName>";
    auto const built = build(vfile(text), folder.file("x.xml"));
    EXPECT_EQ(built.file, nullptr);
    EXPECT_EQ(built.error, KString("A file name can't hold a zero character"));
}

TEST_F(VFileBuilderTest, WithoutAFolderInTheHeadersPathTheTextIsUsedAsItIs) {
    putFile(folder.path / "a.dat", 4096);
    auto const built = build(vfile("<FileName>" + (folder.path / "a.dat").string() + "</FileName>"), "x.xml");
    ASSERT_EQ(built.error, KString());
    EXPECT_EQ(built.file->name(), folder.file("a.dat"));
}

TEST_F(VFileBuilderTest, AMissingFileGivesTheErrorOfOpeningAndIsNotMade) {
    KString const name = folder.file("missing.dat");
    auto const expected = VFileFile::open(name, false).error;
    EXPECT_NE(expected, KString());
    EXPECT_EQ(build(vfile("<FileName>missing.dat</FileName>"), folder.file("x.xml")).error, expected);
    EXPECT_EQ(
        build(vfile("<Grow>" + vfile("<FileName>missing.dat</FileName>") + "</Grow>"), folder.file("x.xml")).error,
        expected);
    EXPECT_FALSE(std::filesystem::exists(folder.path / "missing.dat"));
}

TEST_F(VFileBuilderTest, TheReadOnlyFlagReachesTheHostFile) {
    putFile(folder.path / "a.dat", 4096);
    std::string const text = vfile("<FileName>a.dat</FileName>");
    auto const built = build(text, folder.file("x.xml"), true);
    ASSERT_NE(built.file, nullptr);
    EXPECT_EQ(build(text, folder.file("x.xml"), false).error, KString("Already open with different read-only mode"));
    EXPECT_EQ(build(text, folder.file("x.xml"), true).file, built.file);
}

// --- Partitions ---

TEST_F(VFileBuilderTest, APartitionFromTheBeginningIsALimitAlone) {
    auto const built = build(vfile(partitionForm("0", "10000", THIS)));
    ASSERT_EQ(built.error, KString());
    EXPECT_EQ(built.file, VFileLimit::section(memory, 10000).file);
}

TEST_F(VFileBuilderTest, APartitionFromFurtherOnIsALimitOverAnOffset) {
    auto const built = build(vfile(partitionForm("4096", "10000", THIS)));
    ASSERT_EQ(built.error, KString());
    EXPECT_EQ(built.file, VFileLimit::section(VFileOffset::section(memory, 4096).file, 10000).file);
    EXPECT_EQ(built.file, buildPartition(memory, 4096, 10000).file);
    auto const data = pattern(0, 512);
    EXPECT_EQ(built.file->writeSync(9488, 512, data.data()), KString());
    EXPECT_EQ(memory->bytes(4096 + 9488, 512), data);
}

TEST_F(VFileBuilderTest, PartitionNumbersMayStandInWhiteSpaceAndNothingElse) {
    EXPECT_EQ(build(vfile(partitionForm(" 4096\r\n", "\t10000 ", THIS))).file,
              build(vfile(partitionForm("4096", "10000", THIS))).file);
    EXPECT_EQ(build(vfile(partitionForm("18446744073709551615", "18446744073709551615", THIS))).error, KString());
    for (char const* bad : {"", "x", "-1", "1x", "0x10", "1 2", "18446744073709551616", "1.0"}) {
        EXPECT_EQ(build(vfile(partitionForm(bad, "1", THIS))).error, BAD) << bad;
        EXPECT_EQ(build(vfile(partitionForm("1", bad, THIS))).error, BAD) << bad;
    }
    EXPECT_EQ(build(vfile("<Partition><Start>1</Start>" + THIS + "</Partition>")).error, BAD);
    EXPECT_EQ(build(vfile("<Partition><Length>1</Length>" + THIS + "</Partition>")).error, BAD);
}

TEST_F(VFileBuilderTest, TheErrorOfANestedDescriptionComesBeforeThePartitionsOwn) {
    EXPECT_EQ(build(vfile(partitionForm("x", "y", vfile("<Grow>" + THIS + "</Grow>")))).error, KString("Read failed"));
}

// --- Containers ---

TEST_F(VFileBuilderTest, ContainersAreOpenedOnTheNestedFile) {
    putGrow(123);
    auto const grow = build(vfile("<Grow>" + THIS + "</Grow>"));
    EXPECT_EQ(grow.file, VFileGrow::open(memory, false).file);
    EXPECT_EQ(grow.file->length(), 123u);
    EXPECT_EQ(build(vfile("<Grow><MinLength>nonsense</MinLength>" + THIS + "</Grow>")).file, grow.file);

    memory = std::make_shared<MemoryFile>();
    ASSERT_EQ(VFileSparse2::create(memory, 1 << 20), KString());
    EXPECT_EQ(build(vfile("<Sparse2>" + THIS + "</Sparse2>")).file, VFileSparse2::open(memory, false).file);
    EXPECT_EQ(build(vfile("<Sparse>" + THIS + "</Sparse>")).error, KString("Bad sparse header magic number"));
    EXPECT_EQ(build(vfile("<Grow>" + THIS + "</Grow>")).error, KString("Bad grow header magic number"));

    memory = std::make_shared<MemoryFile>();
    memory->resize(16384);
    putText(*memory, 0, "KLVNPRSE");
    auto const sparse = build(vfile("<Sparse>" + THIS + "</Sparse>"));
    EXPECT_NE(std::dynamic_pointer_cast<VFileSparse1>(sparse.file), nullptr);
    EXPECT_EQ(build(vfile("<Sparse2>" + THIS + "</Sparse2>")).error, KString("Read failed"));
}

TEST_F(VFileBuilderTest, TwoBuildersOfOneDescriptionShareEveryObject) {
    ASSERT_EQ(VFileSparse2::create(memory, 1 << 20), KString());
    auto const sparse = VFileSparse2::open(memory, false).file;
    auto const section = buildPartition(sparse, 4096, 65536).file;
    ASSERT_EQ(VFileGrow::create(section), KString());
    std::string const text =
        vfile("<Grow><MinLength>8192</MinLength>" +
              vfile(partitionForm("4096", "65536", vfile("<Sparse2>" + THIS + "</Sparse2>"))) + "</Grow>");
    auto const first = build(text), second = build(text);
    ASSERT_EQ(first.error, KString());
    EXPECT_EQ(first.file, second.file);
    EXPECT_EQ(first.file, VFileGrow::open(section, false).file);
    EXPECT_EQ(first.file->name(), KString("clip"));
}

TEST_F(VFileBuilderTest, AFailureReleasesTheLevelsBelow) {
    ASSERT_EQ(VFileSparse2::create(memory, 1 << 20), KString());
    EXPECT_EQ(build(vfile("<Grow>" + vfile("<Sparse2>" + THIS + "</Sparse2>") + "</Grow>")).error,
              KString("Bad grow header magic number"));
    EXPECT_EQ(memory.use_count(), 1);
    EXPECT_EQ(VFileSparse2::create(memory, 1 << 20), KString()) << "nobody has it open";
}

// Each level's write extends the level, so all of them wait inside each other.
TEST_F(VFileBuilderTest, StacksAsDeepAsAHeaderAllowsAreBuiltReadWrittenAndClosed) {
    constexpr std::uint64_t DEPTH = 1168;
    std::string opening, closing;
    for (std::uint64_t level = 0; level < DEPTH; ++level) {
        opening += "<VFile><Grow>";
        closing += "</Grow></VFile>";
        putText(*memory, level * 4096, "KLVNGROW");
        putBigEndian(*memory, level * 4096 + 8, (DEPTH - 1 - level) * 4096);  // up to the next one's header
    }
    memory->resize(DEPTH * 4096);
    ASSERT_LE(opening.size() + THIS.size() + closing.size(), 32768u);
    auto built = build(opening + THIS + closing);
    ASSERT_EQ(built.error, KString());
    auto const data = pattern(0, 512);
    EXPECT_EQ(built.file->writeSync(0, 512, data.data()), KString());
    std::vector<std::byte> read(512);
    EXPECT_EQ(built.file->readSync(0, 512, read.data()), KString());
    EXPECT_EQ(read, data);
    EXPECT_EQ(memory->bytes(DEPTH * 4096, 512), data);
    built.file.reset();
    EXPECT_EQ(memory.use_count(), 1);
    EXPECT_EQ(build(opening + THIS + closing).file->length(), 512u);
}

TEST_F(VFileBuilderTest, DeepDescriptionsWithoutABottomAreRefused) {
    std::string opening, closing;
    for (int level = 0; level < 1000; ++level) {
        opening += "<VFile><Sparse2>";
        closing += "</Sparse2></VFile>";
    }
    EXPECT_EQ(build(opening + closing).error, BAD);
}

}  // namespace
}  // namespace KelvonClip
