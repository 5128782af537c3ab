// Handles to the nodes of a parsed XML document.
//
// Purpose: TVLIDOM_Node, TVLIDOM_Element and TVLIDOM_NodeList, the reading side of the document model.
// Ownership: handles are plain values that own nothing; the TVLIDOM_Document owns the nodes, and a handle
//   must not be used after its document is gone. A handle may be null.
// Threads: reading one document from several threads needs a lock of the caller's.
// Units: none.
// Errors: every question to a null handle has a quiet answer: empty text, no children, type 0.
#pragma once

#include <cstddef>
#include <vector>

#include "I18NString.h"

struct XmlNode;

class TVLIDOM_Node {
  public:
    // Node types, numbered as the document object model numbers them.
    static constexpr int ELEMENT_NODE = 1;
    static constexpr int TEXT_NODE = 3;
    static constexpr int CDATA_SECTION_NODE = 4;

    TVLIDOM_Node() = default;
    explicit TVLIDOM_Node(const XmlNode* node) : m_node(node) {}

    bool isNull() const { return m_node == nullptr; }
    int getNodeType() const;
    I18NString getNodeName() const;
    bool hasNodeName(const I18NString& name) const;  // as getNodeName() == name, without a copy
    I18NString getNodeValue() const;
    TVLIDOM_Node getFirstChild() const;
    TVLIDOM_Node getNextSibling() const;
    TVLIDOM_Node getParentNode() const;

    friend bool operator==(const TVLIDOM_Node& left, const TVLIDOM_Node& right) = default;  // the same node

  protected:
    const XmlNode* node() const { return m_node; }

  private:
    const XmlNode* m_node = nullptr;
};

class TVLIDOM_NodeList;

class TVLIDOM_Element : public TVLIDOM_Node {
  public:
    TVLIDOM_Element() = default;
    explicit TVLIDOM_Element(const TVLIDOM_Node& node);  // null when the node is no element

    I18NString getTagName() const { return getNodeName(); }
    I18NString getAttribute(const I18NString& name) const;  // empty when absent
    // All text and CDATA content at any depth, as it stands.
    I18NString getTextContent() const;
    // The descendants of that name in document order, this element not included.
    TVLIDOM_NodeList getElementsByTagName(const I18NString& name) const;
    TVLIDOM_NodeList getChildNodes() const;
};

class TVLIDOM_NodeList {
  public:
    std::size_t getLength() const { return m_nodes.size(); }
    TVLIDOM_Node item(std::size_t index) const;  // null past the end
    void add(const TVLIDOM_Node& node) { m_nodes.push_back(node); }

  private:
    std::vector<TVLIDOM_Node> m_nodes;
};
