#include "AskedNames.h"

// The linker's --wrap=<call> fixes these names, of which the second halves are those of
// TVLIDOM_Element::getAttribute() and TVLIDOM_Node::hasNodeName(). A member is called as a function whose first
// argument is the object.
// NOLINTBEGIN(bugprone-reserved-identifier): they are the linker's choice
I18NString realGetAttribute(const TVLIDOM_Element* element, const I18NString& name) __asm__(
    "__real__ZNK15TVLIDOM_Element12getAttributeERK10I18NString");
I18NString wrapGetAttribute(const TVLIDOM_Element* element, const I18NString& name) __asm__(
    "__wrap__ZNK15TVLIDOM_Element12getAttributeERK10I18NString");
bool realHasNodeName(const TVLIDOM_Node* node,
                     const I18NString& name) __asm__("__real__ZNK12TVLIDOM_Node11hasNodeNameERK10I18NString");
bool wrapHasNodeName(const TVLIDOM_Node* node,
                     const I18NString& name) __asm__("__wrap__ZNK12TVLIDOM_Node11hasNodeNameERK10I18NString");
// NOLINTEND(bugprone-reserved-identifier)

namespace {

AskedNames* installed = nullptr;

}  // namespace

I18NString wrapGetAttribute(const TVLIDOM_Element* element, const I18NString& name) {
    if (AskedNames* const asked = AskedNames::current()) asked->noteAttribute(*element, name);
    return realGetAttribute(element, name);
}

bool wrapHasNodeName(const TVLIDOM_Node* node, const I18NString& name) {
    if (AskedNames* const asked = AskedNames::current()) asked->noteElement(name);
    return realHasNodeName(node, name);
}

AskedNames::AskedNames() {
    installed = this;
}

AskedNames::~AskedNames() {
    installed = nullptr;
}

AskedNames* AskedNames::current() {
    return installed;
}

void AskedNames::noteAttribute(const TVLIDOM_Element& element, const I18NString& name) {
    if (!element.isNull()) m_attributes.insert(element.getTagName().str() + " " + name.str());
}
