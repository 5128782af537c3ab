// The nodes of a parsed document.
//
// Purpose: what the document model's handles look at: elements with their attributes, texts, comments and
//   instructions, each as small as it can be, because a long document has hundreds of thousands of them.
// Ownership: the tree owns its nodes and their texts, and releases all of them at once. Nodes and texts stay where they
//   are for as long as the tree exists.
// Threads: built by one; a built tree may be read by any.
// Units: texts are UTF-8.
// Errors: std::bad_alloc; the tree stays usable.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <vector>

struct XmlElement;

// Numbered as the document object model numbers them.
enum class XmlNodeType { element = 1, text = 3, cdata = 4, instruction = 7, comment = 8, document = 9 };

struct XmlNode {
    XmlElement* parent = nullptr;  // null for the document
    XmlNode* next = nullptr;
    std::string_view words;  // the name of an element or an instruction; else the value
    XmlNodeType type = XmlNodeType::text;
};

struct XmlAttribute {
    std::string_view name;
    std::string_view value;
    XmlAttribute* next = nullptr;
};

// An element, or the document around the outermost one.
struct XmlElement : XmlNode {
    XmlNode* firstChild = nullptr;
    XmlAttribute* firstAttribute = nullptr;
};

struct XmlInstruction : XmlNode {
    std::string_view data;
};

class XmlTree {
  public:
    XmlTree() { m_document.type = XmlNodeType::document; }
    XmlTree(const XmlTree&) = delete;
    XmlTree& operator=(const XmlTree&) = delete;

    XmlElement& document() { return m_document; }
    const XmlElement* documentElement() const;  // null in an empty tree

    // A new node or attribute that belongs to the tree and stands nowhere yet.
    template <typename Part>
    Part& make() {
        static_assert(std::is_trivially_destructible_v<Part>, "nobody destroys it");
        return *new (room(sizeof(Part), alignof(Part))) Part;
    }
    // A copy that belongs to the tree.
    std::string_view keep(std::string_view text);

  private:
    // Small enough that an ordinary document wastes little, and of one size, so that memory grows as the document does.
    static constexpr std::size_t kBlock = 16384;

    void* room(std::size_t size, std::size_t alignment);
    std::byte* newBlock(std::size_t size);

    XmlElement m_document;
    std::vector<std::unique_ptr<std::byte[]>> m_blocks;
    void* m_free = nullptr;  // what is left of the last block of the usual size
    std::size_t m_left = 0;
};
