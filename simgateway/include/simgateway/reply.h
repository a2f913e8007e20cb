// Payloads of admin replies, built field by field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simgateway {

using Bytes = std::vector<std::uint8_t>;

// A query reply payload: an array of query elements, each an object stream of its own that holds one externalizable
// object. Items of a statistics element are further objects inside that object; identifiers lie in its block data.
//
// A reply holds either statistics or identifiers. The constructor says which; a first id() turns a reply that has no
// statistics into one of identifiers. Calls that shape an element mean the one added last and throw std::logic_error
// when there is none, as does mixing stat() and id(). Texts longer than 65535 bytes throw std::length_error.
class Reply {
public:
    enum class Content { statistics, identifiers };

    explicit Reply(Content content = Content::statistics);

    Reply& element(std::string_view text, std::int32_t rc = 0);
    Reply& stat(std::string_view id, std::string_view value);
    Reply& id(std::string_view identifier);

    // Array flag byte; the element count follows it only when it is 0x01, which is the default.
    Reply& flag(std::uint8_t value);
    // Element count and item count as written, whatever number of elements and items follows.
    Reply& count(std::int32_t value);
    Reply& itemCount(std::int32_t value);
    // Block tag of the last element, or of all present and later ones: 0x77 writes a 1-byte length (its low byte when
    // the block is longer), any other tag a 4-byte length. The default is 0x77 up to 255 bytes, else 0x7A.
    Reply& blockTag(std::uint8_t tag);
    Reply& everyBlockTag(std::uint8_t tag);
    // Class names of the element object, its superclass and the statistics items.
    Reply& classNames(std::string_view element, std::string_view super, std::string_view item);
    // Replaces the return code of an element; throws std::out_of_range for an index that is not there.
    Reply& elementRc(std::size_t index, std::int32_t rc);
    // Bytes put after the last element, or right after the head when there is none yet.
    Reply& raw(const Bytes& bytes);
    // A last statistics element without items ends with its end byte 0x78, as the object stream does, and lacks the
    // fill that keeps a following element at its distance.
    Reply& shortEnd();

    std::size_t elements() const;
    Bytes bytes() const;
    // Size of this reply in a client's result set: marker, element count, elements, terminator.
    std::size_t contentSize() const;

private:
    struct Item {
        std::string id;
        std::string value;
    };
    struct Element {
        std::string text;
        std::int32_t rc = 0;
        std::vector<Item> items;
        std::optional<std::int32_t> itemCount;
        std::optional<std::uint8_t> blockTag;
        Bytes trailing;
    };

    Element& last();
    void appendElement(Bytes& out, const Element& element, bool fill) const;
    void appendItems(Bytes& out, const Element& element, bool fill) const;

    Content kind;
    std::vector<Element> parts;
    Bytes leading;
    std::uint8_t arrayFlag = 0x01;
    std::optional<std::int32_t> arrayCount;
    std::optional<std::uint8_t> commonBlockTag;
    std::optional<std::string> elementClass;
    std::string superClass = "com.qal.zul.stats.Reply";
    std::string itemClass = "com.qal.zul.stats.Stat";
    bool unfilledEnd = false;
};

// Payload of a get attribute reply: array flag 0 and a stream that holds one string.
Bytes attributePayload(std::string_view text);

// Replies with one element whose contentSize() is exactly `size` (at least 32). Every item fits a short block. Throws
// std::invalid_argument for a smaller size.
Reply statsOfContentSize(std::size_t size);
Reply idsOfContentSize(std::size_t size);

}  // namespace simgateway
