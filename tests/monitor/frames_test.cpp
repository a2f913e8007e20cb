// Messages between Collector and worker, as they are written and as anything at all.
#include "monitor/frames.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>

namespace {

using namespace monitor;

std::string sampleMessage() {
    using namespace std::string_literals;
    SampleWriter writer;
    writer.addElement("a", 0);
    writer.addItem("a.one", "1");
    writer.addItem("", "with\0nul"s);
    writer.addElement("failed", -7);
    writer.addElement("", 3);
    writer.addItem("z", std::string(300, 'z'));
    return writer.finish({true, 12.5, 3.25, 0.125, 4711});
}

// One of each kind.
const std::string MESSAGES[] = {writeHello(),
                                writeOpen({"host", 7531, 3, "/trace"}),
                                writeQuery({What::statsById, {"a", "b"}}),
                                writePhase(Phase::opening),
                                writeOpened({"1_0_0_0", 0.5}),
                                sampleMessage(),
                                writeFailed({FailureKind::lost, Phase::querying, -102, "why"}),
                                writeClose(),
                                writeClosed()};

bool within(std::string_view view, const std::string& text) {
    return view.empty() || (view.data() >= text.data() && view.data() + view.size() <= text.data() + text.size());
}

// Reads a message as both sides would, as far as it goes. What comes out has to hold together.
void readAny(FrameReader frame) {
    const MessageType type = frame.type();
    if (type == MessageType::hello) {
        readHello(frame);
    } else if (type == MessageType::open) {
        readOpen(frame);
    } else if (type == MessageType::query) {
        EXPECT_LE(readQuery(frame).what, What::groups);
    } else if (type == MessageType::phase) {
        EXPECT_LE(readPhase(frame), Phase::closing);
    } else if (type == MessageType::opened) {
        readOpened(frame);
    } else if (type == MessageType::failed) {
        EXPECT_LE(readFailed(frame).kind, FailureKind::forbidden);
    } else if (type == MessageType::sample) {
        const Sample sample = readSample(frame);
        ASSERT_EQ(sample.texts.size(), 1u);
        std::size_t items = 0;
        for (const Element& element : sample.elements) {
            EXPECT_TRUE(within(element.text, *sample.texts[0]));
            EXPECT_EQ(element.firstItem, items);
            items += element.itemCount;
            for (const Item& item : sample.itemsOf(element)) {
                EXPECT_TRUE(within(item.id, *sample.texts[0]) && within(item.value, *sample.texts[0]));
            }
        }
        EXPECT_EQ(items, sample.items.size());
    }
}

// Returns how many whole messages came, and whether the rest made sense.
std::pair<int, bool> readAll(FrameBuffer& buffer) {
    int count = 0;
    try {
        while (const std::optional<FrameReader> frame = buffer.next()) {
            readAny(*frame);
            ++count;
        }
    } catch (const FrameError&) {
        return {count, false};
    }
    return {count, true};
}

TEST(Frames, ArriveInPiecesOfAnySize) {
    const std::string all = std::accumulate(std::begin(MESSAGES), std::end(MESSAGES), std::string());
    for (std::size_t size = 1; size <= all.size(); ++size) {
        FrameBuffer buffer;
        int count = 0;
        for (std::size_t place = 0; place < all.size(); place += size) {
            buffer.append(std::string_view(all).substr(place, size));
            const auto [read, sound] = readAll(buffer);
            ASSERT_TRUE(sound);
            count += read;
        }
        ASSERT_EQ(count, std::ssize(MESSAGES)) << size;
    }
}

TEST(Frames, SampleComesBackAsItWas) {
    FrameBuffer buffer;
    buffer.append(sampleMessage());
    FrameReader frame = buffer.next().value();
    const Sample sample = readSample(frame);
    buffer.clear();
    EXPECT_EQ(sample.wallTime, 12.5);
    EXPECT_EQ(sample.monotonicTime, 3.25);
    EXPECT_EQ(sample.querySeconds, 0.125);
    EXPECT_EQ(sample.contentSize, 4711u);
    ASSERT_EQ(sample.elements.size(), 3u);
    EXPECT_EQ(sample.elements[0].text, "a");
    EXPECT_EQ(sample.elements[1].rc, -7);
    EXPECT_TRUE(sample.itemsOf(sample.elements[1]).empty());
    ASSERT_EQ(sample.items.size(), 3u);
    EXPECT_EQ(sample.items[1].value.size(), 8u);
    EXPECT_EQ(sample.itemsOf(sample.elements[2])[0].value, std::string(300, 'z'));

    std::string joined = writeQuery({What::statsById, {"", "b", "c:d"}});
    buffer.append(joined);
    FrameReader query = buffer.next().value();
    EXPECT_EQ(readQuery(query).ids, ":b:c:d");
}

TEST(Frames, AnyBytesAreMessagesOrAnError) {
    std::mt19937 random(20261121);
    int errors = 0;
    int read = 0;
    for (int round = 0; round < 40000; ++round) {
        std::string bytes = MESSAGES[random() % std::size(MESSAGES)];
        for (std::size_t changes = random() % 4; changes > 0; --changes) {
            const std::size_t place = random() % bytes.size();
            const char values[] = {0, 1, -1, 127, static_cast<char>(random())};
            bytes[place] = values[random() % std::size(values)];
        }
        if (random() % 3 == 0) {
            bytes.resize(random() % (bytes.size() + 8));
        }
        if (random() % 3 == 0 && bytes.size() > 4) {  // a length that agrees
            const std::uint32_t length = static_cast<std::uint32_t>(bytes.size() - 4);
            bytes.replace(0, 4, std::string(reinterpret_cast<const char*>(&length), 4));
        }
        FrameBuffer buffer;
        buffer.append(bytes);
        const auto [count, sound] = readAll(buffer);
        errors += sound ? 0 : 1;
        read += count;
    }
    EXPECT_GT(errors, 1000);
    EXPECT_GT(read, 1000);
}

}  // namespace
