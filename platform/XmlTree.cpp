#include "XmlTree.h"

#include <cstring>

const XmlElement* XmlTree::documentElement() const {
    const XmlNode* node = m_document.firstChild;
    while (node != nullptr && node->type != XmlNodeType::element)
        node = node->next;
    return static_cast<const XmlElement*>(node);
}

std::string_view XmlTree::keep(std::string_view text) {
    if (text.empty()) return {};
    void* const copy = room(text.size(), 1);
    std::memcpy(copy, text.data(), text.size());
    return {static_cast<const char*>(copy), text.size()};
}

// A piece that would waste much of a block has one of its own.
void* XmlTree::room(std::size_t size, std::size_t alignment) {
    if (size > kBlock / 4) return newBlock(size);
    if (std::align(alignment, size, m_free, m_left) == nullptr) {
        m_free = newBlock(kBlock);
        m_left = kBlock;
    }
    void* const piece = m_free;
    m_free = static_cast<std::byte*>(m_free) + size;
    m_left -= size;
    return piece;
}

std::byte* XmlTree::newBlock(std::size_t size) {
    m_blocks.push_back(std::make_unique_for_overwrite<std::byte[]>(size));
    return m_blocks.back().get();
}
