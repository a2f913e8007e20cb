// What is written, and what is left of it where the file is cut or takes no more.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "recording/writer.h"
#include "recording/zst.h"
#include "samples.h"
#include "support/temp_directory.h"

namespace recording {
namespace {

using support::TempDirectory;

class Writing : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (!CAN_COMPRESS && namedCompressed(GetParam())) {
            GTEST_SKIP() << "built without libzstd";
        }
    }
    // Writes samples with these numbers; returns what a reader will find.
    std::vector<std::string> write(std::size_t from, std::size_t to, WriterOptions options = {}) const {
        options.file = options.file.empty() ? file : options.file;
        Writer writer(options);
        std::vector<std::string> lines;
        for (std::size_t number = from; number < to; ++number) {
            writer.add(makeSample(START + static_cast<double>(number), number));
            lines.push_back(described(makeSample(START + static_cast<double>(number), number)));
        }
        return lines;
    }

    const TempDirectory directory;
    const std::string file = directory.file(std::string("gw") + GetParam());
};

INSTANTIATE_TEST_SUITE_P(Files, Writing, testing::Values(".jsonl", ".jsonl.zst"));

TEST_P(Writing, isReadBackAlsoByPartsAndInFormerPlaces) {
    std::vector<std::string> all = write(0, 150);
    for (const std::string& line : write(150, 200)) {
        all.push_back(line);
    }
    const Content content = readAll(file);
    EXPECT_EQ(content.samples, all);
    EXPECT_EQ(content.counts.torn, 0U);
    Reader reader(file);
    for (const std::size_t number : {190U, 7U, 60U, 119U, 120U, 149U, 150U}) {
        reader.seek(START + static_cast<double>(number));
        EXPECT_EQ(described(reader.next()->sample), all[number]) << number;
    }
    if (namedCompressed(file)) {
        // Each frame by itself.
        const std::string bytes = contentOf(file);
        std::size_t frames = 0;
        std::size_t samples = 0;
        for (std::size_t place = 0; place != std::string::npos; ++frames) {
            const std::size_t next = bytes.find(ZST_MAGIC, place + 1);
            setContent(file, bytes.substr(place, next == std::string::npos ? next : next - place));
            samples += readAll(file).samples.size();
            place = next;
        }
        EXPECT_EQ(frames, 4U);
        EXPECT_EQ(samples, all.size());
    }
}

// At each byte: what was whole stays, then and after another writer has gone on; nothing else comes.
TEST_P(Writing, survivesACutAnywhere) {
    std::vector<std::size_t> ends = {0};  // of the file, with so many samples
    std::vector<std::string> all;
    {
        Writer writer({.file = file});
        const std::size_t samples = namedCompressed(file) ? 62 : 4;  // more than a frame
        for (std::size_t number = 0; number < samples; ++number) {
            writer.add(makeSample(START, number, FIRST, 2));
            all.push_back(described(makeSample(START, number, FIRST, 2)));
            ends.push_back(std::filesystem::file_size(file));
        }
    }
    const std::string whole = contentOf(file);
    const std::size_t from = namedCompressed(file) ? ends[59] : 0;
    for (std::size_t size = from; size <= whole.size(); ++size) {
        const auto last = std::upper_bound(ends.begin(), ends.end(), size);
        std::size_t expected = static_cast<std::size_t>(last - ends.begin()) - 1;
        // A line without its line end is whole.
        expected += !namedCompressed(file) && last != ends.end() && size + 1 == *last ? 1 : 0;
        const std::vector<std::string> left(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(expected));
        setContent(file, whole.substr(0, size));
        const Content cut = readAll(file);
        ASSERT_EQ(cut.samples, left) << size;
        ASSERT_LE(cut.counts.torn, 1U) << size;
        ASSERT_EQ(cut.complaint, "") << size;
        if (namedCompressed(file) ? size == ends[expected] : size == ends[expected] || size + 1 == ends[expected]) {
            ASSERT_EQ(cut.counts.torn, 0U) << size;
        }
        if (size % 7 == 0 || size + 40 > whole.size()) {
            {
                Writer writer({.file = file});
                ASSERT_EQ(writer.continues(), expected > 0) << size;
                writer.addGap(FIRST, START, 5, -102, "away");
                writer.add(makeSample(START, 70));
            }
            const Content again = readAll(file);
            ASSERT_EQ(again.samples.size(), expected + 1) << size;
            ASSERT_TRUE(std::equal(left.begin(), left.end(), again.samples.begin())) << size;
            ASSERT_EQ(again.gaps, std::vector<std::string>{"away"}) << size;
            ASSERT_LE(again.counts.torn, 1U) << size;
        }
    }
}

// Frames before and behind damage are read.
TEST_P(Writing, survivesDamageElsewhere) {
    const std::vector<std::string> all = write(0, 180);
    const std::string whole = contentOf(file);
    for (std::size_t place = whole.size() / 3 + 20; place < whole.size(); place += whole.size() / 40) {
        std::string damaged = whole;
        damaged.replace(place, 8, std::string(8, '\xFF'));
        setContent(file, damaged);
        const Content content = readAll(file);
        const std::set<std::string> known(all.begin(), all.end());
        for (const std::string& sample : content.samples) {
            ASSERT_TRUE(known.contains(sample)) << place;
        }
        EXPECT_GE(content.samples.size(), namedCompressed(file) ? 60U : 177U) << place;
        EXPECT_GE(content.counts.torn, content.samples.size() < all.size() ? 1U : 0U) << place;
        EXPECT_EQ(content.samples.front(), all.front()) << place;
        EXPECT_TRUE(place > whole.size() * 3 / 5 || content.samples.back() == all.back()) << place;
    }
}

TEST_P(Writing, goesOnWhenThereIsRoomAgain) {
    std::signal(SIGXFSZ, SIG_IGN);
    std::vector<std::string> told;
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    {
        Writer writer({.file = file, .tell = [&](const std::string& text) { told.push_back(text); }});
        for (std::size_t number = 0; number < 40; ++number) {
            if (number == 10 || number == 30) {
                setrlimit(RLIMIT_FSIZE, &former);
            } else if (number == 5 || number == 20) {
                const rlimit small{std::filesystem::file_size(file) + 20, former.rlim_max};
                setrlimit(RLIMIT_FSIZE, &small);
            }
            writer.add(makeSample(START + static_cast<double>(number), number, number % 2 == 0 ? FIRST : SECOND));
        }
        setrlimit(RLIMIT_FSIZE, &former);
    }
    const Content content = readAll(file);
    EXPECT_EQ(content.samples.size(), 25U);
    EXPECT_EQ(content.counts.torn, 0U);
    EXPECT_EQ(content.gaps, std::vector<std::string>(4, "the recording could not be written"));
    ASSERT_EQ(told.size(), 4U);
    EXPECT_EQ(told[0], file + " takes no more samples, which are lost until it does: File too large");
    EXPECT_EQ(told[1], file + " takes samples again");
    Reader reader(file);
    reader.seek(START + 6);
    EXPECT_EQ(reader.next()->sample.contentSize, 1004U);
    const std::optional<Entry> gap = reader.next();
    EXPECT_TRUE(gap->gap);
    EXPECT_EQ(gap->sample.wallTime, START + 5);
}

TEST_P(Writing, isForOneWriter) {
    const Writer writer({.file = file});
    try {
        const Writer other({.file = file});
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), file + ": another program records into it");
    }
    EXPECT_THROW(Writer({.file = directory.file(std::string("none/x") + GetParam())}), std::system_error);
    EXPECT_THROW(Writer({.file = "/dev/null"}), std::runtime_error);
}

TEST_P(Writing, rotates) {
    const auto names = [&] {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(file).parent_path())) {
            found.insert(entry.path().filename().string());
        }
        return found;
    };
    const std::string end = GetParam();
    const std::string other = "gw.20200101T000000Z" + end + ".old";
    setContent(directory.file(other), "");
    setContent(directory.file("gw.2020" + end), "");
    {
        // 03:32:00, 03:33:40, 03:35:20, ...
        Writer writer({.file = file, .rotation = *parseRotation("2m"), .keep = 2});
        for (std::size_t number = 0; number < 6; ++number) {
            writer.add(makeSample(START + 100 * static_cast<double>(number), number));
        }
    }
    EXPECT_EQ(names(), (std::set<std::string>{"gw" + end, "gw.2020" + end, other, "gw.20261121T033700Z" + end,
                                              "gw.20261121T033840Z" + end}));
    EXPECT_EQ(readAll(directory.file("gw.20261121T033700Z" + end)).samples.size(), 1U);
    // By size, within a second, and after a restart.
    write(0, 5, {.file = file, .rotation = *parseRotation("1K")});
    std::size_t samples = 0;
    for (const std::string& name : names()) {
        samples += name == other ? 0 : readAll(directory.file(name)).samples.size();
    }
    EXPECT_EQ(samples, 8U);
    EXPECT_GT(names().size(), 5U);

    EXPECT_EQ(rotatedName("/a.b/gw", START), "/a.b/gw.20261121T033200Z");
    EXPECT_EQ(rotatedName("/a.b/.gw.zst", START), "/a.b/.gw.20261121T033200Z.zst");
    EXPECT_EQ(rotatedName("gw1.example.jsonl.zst", START), "gw1.example.20261121T033200Z.jsonl.zst");
    for (const std::string_view word : {"", "d", "0d", "1", "1w", "-1d", "1.5h", "59s", "1d ", "99999999d"}) {
        EXPECT_FALSE(parseRotation(word)) << word;
    }
    EXPECT_EQ(parseRotation("1d")->seconds, 86400);
    EXPECT_EQ(parseRotation("100M")->bytes, 104857600U);
}

// Names with times to come are of a clock that was ahead.
TEST_P(Writing, keepsTheFilesThatWerePutAsideLast) {
    const std::string end = GetParam();
    for (const std::string stamp : {"20990101T000001Z", "20990101T000002Z", "20990101T000003Z"}) {
        setContent(directory.file("gw." + stamp + end), "");
    }
    write(0, 40, {.file = file, .rotation = *parseRotation("1K"), .keep = 3});
    std::set<std::string> samples;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(file).parent_path())) {
        for (const std::string& sample : readAll(entry.path().string()).samples) {
            samples.insert(sample);
        }
    }
    std::set<std::string> last;
    for (std::size_t number = 36; number < 40; ++number) {
        last.insert(described(makeSample(START + static_cast<double>(number), number)));
    }
    EXPECT_TRUE(std::includes(samples.begin(), samples.end(), last.begin(), last.end()));
    EXPECT_FALSE(std::filesystem::exists(directory.file("gw.20990101T000003Z" + end)));
}

TEST_P(Writing, beginsAnewWhereTheFileIsGone) {
    const std::string moved = directory.file(std::string("moved") + GetParam());
    std::vector<std::string> told;
    {
        Writer writer({.file = file, .tell = [&](const std::string& text) { told.push_back(text); }});
        for (std::size_t number = 0; number < 12; ++number) {
            if (number == 3) {
                std::filesystem::remove(file);
            } else if (number == 7) {
                std::filesystem::rename(file, moved);
            }
            writer.add(makeSample(START, number));
        }
    }
    EXPECT_EQ(told, std::vector<std::string>(2, file + " was removed or moved; it begins anew"));
    EXPECT_EQ(readAll(moved).samples.size(), 4U);
    EXPECT_EQ(readAll(moved).counts.torn, 0U);
    EXPECT_EQ(readAll(file).samples.size(), 5U);
}

TEST_P(Writing, rotatesAfterTheNextFileCouldNotBeMade) {
#ifdef RUNTIME_TAKES_DESCRIPTORS
    GTEST_SKIP() << "there are none for the sanitizer";
#endif
    std::vector<std::string> told;
    rlimit former{};
    getrlimit(RLIMIT_NOFILE, &former);
    {
        Writer writer({.file = file, .rotation = *parseRotation("2m"), .tell = [&](const std::string& text) {
                           told.push_back(text);
                       }});
        for (std::size_t number = 0; number < 8; ++number) {
            const rlimit none{number == 2 || number == 3 ? 0 : former.rlim_cur, former.rlim_max};
            setrlimit(RLIMIT_NOFILE, &none);
            writer.add(makeSample(START + 60 * static_cast<double>(number), number));
        }
    }
    const std::string end = GetParam();
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0], file + ": Too many open files; samples go on in the former file");
    EXPECT_EQ(told[1], file + " takes samples again");
    EXPECT_EQ(readAll(directory.file("gw.20261121T033200Z" + end)).samples.size(), 4U);
    EXPECT_EQ(readAll(directory.file("gw.20261121T033600Z" + end)).samples.size(), 2U);
    EXPECT_EQ(readAll(file).samples.size(), 2U);
}

TEST_P(Writing, refusesWhatIsNoRecordingOfItsKind) {
    const std::string compressed = directory.file("x.zst");
    const std::string plain = directory.file("x");
    setContent(plain, std::string(ZST_MAGIC) + "rest");
    EXPECT_THROW(Writer({.file = plain}), std::runtime_error);
    if (CAN_COMPRESS) {
        setContent(compressed, "some text\n");
        EXPECT_THROW(Writer({.file = compressed}), std::runtime_error);
        EXPECT_EQ(contentOf(compressed), "some text\n");
    }
}

}  // namespace
}  // namespace recording
