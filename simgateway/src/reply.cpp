#include "simgateway/reply.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "bytes.h"

namespace simgateway {

namespace {

// Object stream tags.
constexpr std::uint8_t TC_REFERENCE = 0x71;
constexpr std::uint8_t TC_CLASS_DESC = 0x72;
constexpr std::uint8_t TC_OBJECT = 0x73;
constexpr std::uint8_t TC_NULL = 0x70;
constexpr std::uint8_t TC_BLOCK_DATA = 0x77;
constexpr std::uint8_t TC_END_BLOCK_DATA = 0x78;
constexpr std::uint8_t TC_BLOCK_DATA_LONG = 0x7A;

// Class description flags: externalizable, written in block data mode.
constexpr std::uint8_t SC_EXTERNALIZABLE_BLOCK_DATA = 0x0C;

constexpr std::uint64_t ELEMENT_CLASS_UID = 0x2F6A1C0D58E3B947;
constexpr std::uint64_t SUPER_CLASS_UID = 0x51D0937E4C2AF86B;
constexpr std::uint64_t ITEM_CLASS_UID = 0x6B83E5F219047DCA;

// Handle of the item class in its element's stream. Handles count from 0x007E0000 in the order of writing: element
// class, superclass, element object, item class.
constexpr std::uint32_t ITEM_CLASS_HANDLE = 0x007E0003;

constexpr std::size_t SHORT_BLOCK_LIMIT = 0xFF;

// Bytes between the end byte of a statistics element without items and the next element, which starts as far away as
// if an item class with an empty name had been described.
constexpr std::size_t EMPTY_STATISTICS_FILL = 11;

constexpr std::string_view STATS_REPLY_CLASS = "com.qal.zul.stats.StatsReply";
constexpr std::string_view IDS_REPLY_CLASS = "com.qal.zul.stats.IdsReply";

// A class description up to and including its empty annotation: tag, name, UID, flags, no fields, end.
void putClassDesc(Bytes& out, std::string_view name, std::uint64_t uid) {
    put8(out, TC_CLASS_DESC);
    putText(out, name);
    put64(out, uid);
    put8(out, SC_EXTERNALIZABLE_BLOCK_DATA);
    put16(out, 0);
    put8(out, TC_END_BLOCK_DATA);
}

void putBlock(Bytes& out, const Bytes& block, std::optional<std::uint8_t> forcedTag) {
    const std::uint8_t tag = forcedTag.value_or(block.size() <= SHORT_BLOCK_LIMIT ? TC_BLOCK_DATA : TC_BLOCK_DATA_LONG);
    put8(out, tag);
    if (tag == TC_BLOCK_DATA) {
        put8(out, static_cast<std::uint8_t>(block.size() & 0xFF));
    } else {
        put32(out, static_cast<std::uint32_t>(block.size()));
    }
    putBytes(out, block);
}

std::int32_t countOf(std::size_t size) {
    if (size > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        throw std::length_error("too many entries for a 4-byte count");
    }
    return static_cast<std::int32_t>(size);
}

}  // namespace

Reply::Reply(Content content) : kind(content) {
}

Reply::Element& Reply::last() {
    if (parts.empty()) {
        throw std::logic_error("the reply has no element yet");
    }
    return parts.back();
}

Reply& Reply::element(std::string_view text, std::int32_t rc) {
    checkText(text);
    Element added;
    added.text = text;
    added.rc = rc;
    parts.push_back(std::move(added));
    return *this;
}

Reply& Reply::stat(std::string_view identifier, std::string_view value) {
    checkText(identifier);
    checkText(value);
    if (kind != Content::statistics) {
        throw std::logic_error("a statistic in a reply of identifiers");
    }
    last().items.push_back({std::string(identifier), std::string(value)});
    return *this;
}

Reply& Reply::id(std::string_view identifier) {
    checkText(identifier);
    const auto hasItems = [](const Element& part) { return !part.items.empty(); };
    if (kind == Content::statistics && std::any_of(parts.begin(), parts.end(), hasItems)) {
        throw std::logic_error("an identifier in a reply of statistics");
    }
    last().items.push_back({std::string(identifier), {}});
    kind = Content::identifiers;
    return *this;
}

Reply& Reply::flag(std::uint8_t value) {
    arrayFlag = value;
    return *this;
}

Reply& Reply::count(std::int32_t value) {
    arrayCount = value;
    return *this;
}

Reply& Reply::itemCount(std::int32_t value) {
    last().itemCount = value;
    return *this;
}

Reply& Reply::blockTag(std::uint8_t tag) {
    last().blockTag = tag;
    return *this;
}

Reply& Reply::everyBlockTag(std::uint8_t tag) {
    commonBlockTag = tag;
    return *this;
}

Reply& Reply::classNames(std::string_view element, std::string_view super, std::string_view item) {
    checkText(element);
    checkText(super);
    checkText(item);
    elementClass = element;
    superClass = super;
    itemClass = item;
    return *this;
}

Reply& Reply::elementRc(std::size_t index, std::int32_t rc) {
    parts.at(index).rc = rc;
    return *this;
}

Reply& Reply::raw(const Bytes& bytes) {
    putBytes(parts.empty() ? leading : parts.back().trailing, bytes);
    return *this;
}

Reply& Reply::shortEnd() {
    unfilledEnd = true;
    return *this;
}

std::size_t Reply::elements() const {
    return parts.size();
}

Bytes Reply::bytes() const {
    Bytes out;
    put8(out, arrayFlag);
    if (arrayFlag == 0x01) {
        put32(out, arrayCount.value_or(countOf(parts.size())));
    }
    putBytes(out, leading);
    for (const Element& part : parts) {
        const bool isLast = &part == &parts.back();
        appendElement(out, part, !(isLast && unfilledEnd));
        putBytes(out, part.trailing);
    }
    return out;
}

// A client counts these distances: 6 bytes before the class name, 13 between it and the superclass name, 13 more to
// the block tag.
void Reply::appendElement(Bytes& out, const Element& element, bool fill) const {
    const std::string_view usualClass = kind == Content::statistics ? STATS_REPLY_CLASS : IDS_REPLY_CLASS;
    put32(out, STREAM_MAGIC_AND_VERSION);
    put8(out, TC_OBJECT);
    putClassDesc(out, elementClass ? std::string_view(*elementClass) : usualClass, ELEMENT_CLASS_UID);
    putClassDesc(out, superClass, SUPER_CLASS_UID);
    put8(out, TC_NULL);

    Bytes block;
    putText(block, element.text);
    put32(block, element.rc);
    const bool failed = element.rc < 0;
    if (!failed) {
        put32(block, element.itemCount.value_or(countOf(element.items.size())));
        if (kind == Content::identifiers) {
            for (const Item& item : element.items) {
                putText(block, item.id);
            }
        }
    }
    putBlock(out, block, element.blockTag ? element.blockTag : commonBlockTag);

    if (!failed && kind == Content::statistics) {
        appendItems(out, element, fill);
    } else {
        put8(out, TC_END_BLOCK_DATA);
    }
}

// Items of a statistics element and the element's end byte. 7 bytes lie between the item class's UID, or the first
// byte of a later item, and the item's identifier; a client counts them, so the block of an item always has the short
// form. Its length byte is the low byte of a length above 255, which no object stream reader would follow.
void Reply::appendItems(Bytes& out, const Element& element, bool fill) const {
    bool described = false;
    for (const Item& item : element.items) {
        put8(out, TC_OBJECT);
        if (!described) {
            putClassDesc(out, itemClass, ITEM_CLASS_UID);
            put8(out, TC_NULL);
            described = true;
        } else {
            put8(out, TC_REFERENCE);
            put32(out, ITEM_CLASS_HANDLE);
        }
        Bytes block;
        putText(block, item.id);
        putText(block, item.value);
        putBlock(out, block, TC_BLOCK_DATA);
        put8(out, TC_END_BLOCK_DATA);
    }
    put8(out, TC_END_BLOCK_DATA);
    if (!described && fill) {
        out.insert(out.end(), EMPTY_STATISTICS_FILL, 0);
    }
}

std::size_t Reply::contentSize() const {
    std::size_t size = 8 + 4 + 4;
    for (const Element& part : parts) {
        size += 4 + part.text.size() + 4;
        if (part.rc < 0) {
            continue;
        }
        size += 4;
        for (const Item& item : part.items) {
            size += 4 + item.id.size();
            size += kind == Content::statistics ? 4 + item.value.size() : 0;
        }
    }
    return size;
}

Bytes attributePayload(std::string_view text) {
    Bytes out;
    put8(out, 0);
    put32(out, STREAM_MAGIC_AND_VERSION);
    put8(out, TC_STRING);
    putText(out, text);
    return out;
}

namespace {

constexpr std::size_t SMALLEST_CONTENT = 32;
constexpr std::size_t FILL_ITEM_SIZE = 100;

// One element of the wanted size: items of fillItemSize, a last item with what is left over, or a longer element text
// when that is less than an item's length fields and one character take. `add` adds an item of so many characters.
template <typename AddItem>
Reply contentOfSize(Reply::Content content, std::size_t size, std::size_t itemOverhead, AddItem add) {
    if (size < SMALLEST_CONTENT) {
        throw std::invalid_argument("content of " + std::to_string(size) + " bytes cannot hold an element");
    }
    std::size_t rest = size - SMALLEST_CONTENT;
    std::size_t fullItems = rest / FILL_ITEM_SIZE;
    rest %= FILL_ITEM_SIZE;
    const std::size_t smallestItem = itemOverhead + 1;
    Reply reply(content);
    reply.element("fill" + std::string(rest < smallestItem ? rest : 0, '.'));
    for (; fullItems > 0; --fullItems) {
        add(reply, FILL_ITEM_SIZE - itemOverhead);
    }
    if (rest >= smallestItem) {
        add(reply, rest - itemOverhead);
    }
    return reply;
}

}  // namespace

Reply statsOfContentSize(std::size_t size) {
    return contentOfSize(Reply::Content::statistics, size, 8, [](Reply& reply, std::size_t characters) {
        const std::size_t idSize = (characters + 1) / 2;
        reply.stat(std::string(idSize, 'i'), std::string(characters - idSize, 'v'));
    });
}

Reply idsOfContentSize(std::size_t size) {
    return contentOfSize(Reply::Content::identifiers, size, 4,
                         [](Reply& reply, std::size_t characters) { reply.id(std::string(characters, 'i')); });
}

}  // namespace simgateway
