#include "CTLSchemas.h"

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <system_error>
#include <vector>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/framework/XMLGrammarPoolImpl.hpp>
#include <xercesc/framework/XMLValidityCodes.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/parsers/SAXParser.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "CTLError.h"
#include "CTLNearest.h"
#include "PlainXmlParser.h"
#include "TVLIDOM_Helper.h"
#include "TVLIDOM_Text.h"

namespace fs = std::filesystem;
using Severity = CTLFinding::Severity;

namespace {

const char* fileOf(CTLDocument::Kind kind) {
    if (kind == CTLDocument::Kind::Bootstrap) return "bootstrap.xsd";
    return kind == CTLDocument::Kind::Logging ? "zorlogconfig.xsd" : "startup.xsd";
}

// What the parser says of a document, or of a schema.
struct Complaint {
    unsigned int code = 0;
    bool isValidity = false;  // about the document's structure, else about a value or about the text as such
    CTLPlace place;
    std::string words;
};

// The XML library's parser with a grammar. It loads nothing that a document names.
class CheckingParser : public xercesc::SAXParser {
  public:
    explicit CheckingParser(xercesc::XMLGrammarPool& pool)
        : SAXParser(nullptr, xercesc::XMLPlatformUtils::fgMemoryManager, &pool) {
        const_cast<xercesc::XMLScanner&>(getScanner()).setErrorReporter(this);
        setValidationScheme(Val_Always);
        setDoNamespaces(true);
        setDoSchema(true);
        m_limits.setEntityExpansionLimit(PlainXmlParser::kMaxEntityExpansions);
        setSecurityManager(&m_limits);
    }
    void takeDocuments() {
        useCachedGrammarInParse(true);
        setLoadExternalDTD(false);
        setLoadSchema(false);
        setDisableDefaultEntityResolution(true);
    }

    void error(unsigned int code, const XMLCh* domain, xercesc::XMLErrorReporter::ErrTypes type,
               const XMLCh* words, const XMLCh* /*systemId*/, const XMLCh* /*publicId*/, XMLFileLoc line,
               XMLFileLoc column) override {
        if (type == xercesc::XMLErrorReporter::ErrType_Warning || m_complaints.size() >= CTLFindings::kMost)
            return;
        Complaint complaint;
        complaint.code = code;
        complaint.isValidity = xercesc::XMLString::equals(domain, xercesc::XMLUni::fgValidityDomain);
        complaint.place = {static_cast<std::size_t>(line), static_cast<std::size_t>(column)};
        complaint.words = TVLIDOM_Text::fromXml(words).str();
        m_complaints.push_back(complaint);
    }

    const std::vector<Complaint>& complaints() const { return m_complaints; }

  private:
    xercesc::SecurityManager m_limits;
    std::vector<Complaint> m_complaints;
};

// The words of a schema that a document may have meant.
struct Words {
    std::set<std::string> elements;
    std::set<std::string> attributes;
    std::set<std::string> values;

    void readFrom(const fs::path& file) {
        std::ifstream stream(file);
        const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        static const std::regex declaration(
            R"re(<xs:(element|attribute|enumeration) (?:name|value)="(\w+)")re");
        for (std::sregex_iterator it(text.begin(), text.end(), declaration); it != std::sregex_iterator();
             ++it) {
            if ((*it)[1] == "element") elements.insert((*it)[2]);
            if ((*it)[1] == "attribute") attributes.insert((*it)[2]);
            if ((*it)[1] == "enumeration") values.insert((*it)[2]);
        }
    }
};

// The n-th text between apostrophes.
std::string quotedIn(const std::string& words, int n) {
    std::size_t begin = words.find('\'');
    for (; n > 1 && begin != std::string::npos; --n)
        begin = words.find('\'', words.find('\'', begin + 1) + 1);
    if (begin == std::string::npos) return {};
    const std::size_t end = words.find('\'', begin + 1);
    return words.substr(begin + 1, end - begin - 1);
}

// One document's complaints, turned into findings.
class Translation {
  public:
    Translation(const CTLDocument& document, const Words& words, CTLFindings& findings)
        : m_document(document), m_words(words), m_findings(findings), m_cursor(document.text()) {}

    // In the order of the document.
    void take(const Complaint& complaint) {
        const CTLDocument::Element& element = elementOf(complaint);
        if (!complaint.isValidity) return takeValue(complaint, element);
        using xercesc::XMLValid;
        switch (complaint.code) {
            case XMLValid::ElementNotDefined:
                return unknownElement(element, quotedIn(complaint.words, 1));
            case XMLValid::AttNotDefinedForElement:
                return unknownAttribute(element, quotedIn(complaint.words, 1));
            case XMLValid::RequiredAttrNotProvided:
                return add(element, "",
                           tag(element) + " lacks the attribute \"" + quotedIn(complaint.words, 1) + "\"");
            case XMLValid::ElementNotValidForContent:
                return misplacedElement(element, quotedIn(complaint.words, 1));
            case XMLValid::NotEnoughElemsForCM:
            case XMLValid::EmptyNotValidForContent:
                return add(element, "", tag(element) + " is not complete" + modelIn(complaint.words));
            case XMLValid::IC_KeyNotFound:
                return add(element, "type",
                           "the element in " + tag(element) + " is not the one that its type names");
            case XMLValid::IC_DuplicateUnique:
                return add(element, "name", "there is another " + tag(element) + " of this name");
            default:
                return takeValue(complaint, element);
        }
    }

  private:
    static std::string tag(const CTLDocument::Element& element) {
        return "<" + element.handle.getTagName().str() + ">";
    }

    // A complaint comes when the parser has read a tag, or the text before one that ends an element.
    const CTLDocument::Element& elementOf(const Complaint& complaint) {
        const std::size_t at = m_cursor.moveTo(complaint.place);
        const std::size_t tag = at == 0 ? 0 : m_document.text().rfind('<', at - 1);
        return m_document.elementAt(tag == std::string::npos ? 0 : tag);
    }

    void add(const CTLDocument::Element& element, const std::string& attribute, const std::string& text) {
        m_findings.add(m_document.at(Severity::Error, "schema", element.handle, attribute, text));
    }

    void unknownElement(const CTLDocument::Element& element, const std::string& name) {
        m_unknown.insert(element.begin);
        const std::string text = "unknown element <" + name + ">";
        add(element, "", text + CTLNearest::question(name, m_words.elements));
    }

    // Of what is unknown itself nothing is known.
    void unknownAttribute(const CTLDocument::Element& element, const std::string& name) {
        if (m_unknown.count(element.begin) != 0) return;
        const std::string text = "unknown attribute \"" + name + "\" of " + tag(element);
        add(element, name, text + CTLNearest::question(name, m_words.attributes));
    }

    // The complaint is about the parent, and comes at its end.
    void misplacedElement(const CTLDocument::Element& parent, const std::string& name) {
        bool isTold = false;
        const CTLDocument::Element* last = nullptr;
        for (TVLIDOM_Node child = parent.handle.getFirstChild(); !child.isNull();
             child = child.getNextSibling()) {
            if (!TVLIDOM_Helper::isElementNamed(child, name)) continue;
            last = &m_document.elementOf(child);
            isTold = isTold || m_unknown.count(last->begin) != 0;
        }
        if (isTold) return;
        add(last == nullptr ? parent : *last, "",
            "<" + name + "> does not belong here in " + tag(parent) + ", or not once more");
    }

    // A long one helps nobody.
    static std::string modelIn(const std::string& words) {
        const std::string model = quotedIn(words, 1);
        return model.size() > 80 ? std::string(": it lacks a required element") : ": it has " + model;
    }

    // The library does not say of which attribute it speaks.
    std::string attributeWith(const CTLDocument::Element& element, const std::string& value) const {
        for (const std::string& name : m_words.attributes) {
            if (!value.empty() && element.handle.getAttribute(name) == value) return name;
        }
        return element.handle.getAttribute("xsi:type") == value ? "xsi:type" : "";
    }

    void takeValue(const Complaint& complaint, const CTLDocument::Element& element) {
        const std::string value = quotedIn(complaint.words, 1);
        const std::string attribute = attributeWith(element, value);
        const std::string what =
            attribute.empty() ? tag(element) : "attribute \"" + attribute + "\" of " + tag(element);
        add(element, attribute, what + ": " + complaint.words + CTLNearest::question(value, m_words.values));
    }

    const CTLDocument& m_document;
    const Words& m_words;
    CTLFindings& m_findings;
    CTLDocument::Cursor m_cursor;
    std::set<std::size_t> m_unknown;  // where elements begin that the schema does not know
};

std::string failureOf(CheckingParser& parser, const fs::path& file) {
    try {
        const xercesc::Grammar* const grammar =
            parser.loadGrammar(file.c_str(), xercesc::Grammar::SchemaGrammarType, true);
        if (!parser.complaints().empty()) return parser.complaints().front().words;
        return grammar == nullptr ? "it is no schema" : "";
    } catch (const xercesc::XMLException& exception) {
        return TVLIDOM_Text::fromXml(exception.getMessage()).str();
    } catch (const xercesc::SAXException& exception) {
        return TVLIDOM_Text::fromXml(exception.getMessage()).str();
    } catch (const xercesc::OutOfMemoryException&) {
        return "no memory";
    }
}

// The library matches a text with a pattern character by character, each on the stack.
constexpr std::size_t kLongest = 4096;

// Of an element with nothing but text; a "param" may have any, and is held against no pattern.
std::size_t lengthOfText(const TVLIDOM_Element& element) {
    if (element.hasNodeName("param")) return 0;
    std::size_t length = 0;
    for (TVLIDOM_Node child = element.getFirstChild(); !child.isNull(); child = child.getNextSibling()) {
        const int type = child.getNodeType();
        if (type == TVLIDOM_Node::ELEMENT_NODE) return 0;
        const bool isText = type == TVLIDOM_Node::TEXT_NODE || type == TVLIDOM_Node::CDATA_SECTION_NODE;
        if (isText) length += child.getNodeValue().length();
    }
    return length;
}

// The attribute or element that is longer, as words; empty when none is. A command has no pattern.
std::string tooLongIn(const TVLIDOM_Element& element, const Words& words) {
    std::set<std::string> names = words.attributes;
    names.erase("commandString");
    names.insert("xsi:type");
    for (const std::string& name : names) {
        if (element.getAttribute(name).length() > kLongest) return "attribute \"" + name + "\"";
    }
    return lengthOfText(element) > kLongest ? "<" + element.getTagName().str() + ">" : std::string();
}

// Whether any is; a document with one is held against no schema.
bool hasTooLong(const CTLDocument& document, const Words& words, CTLFindings& findings) {
    bool isAny = false;
    for (const CTLDocument::Element& element : document.elements()) {
        const std::string what = tooLongIn(element.handle, words);
        if (what.empty()) continue;
        isAny = true;
        findings.add(document.at(Severity::Error, "schema", element.handle, "",
                                 what + " has more than " + std::to_string(kLongest) +
                                     " bytes: this document is not held against its schema"));
    }
    return isAny;
}

// The folder of this program.
fs::path programFolder() {
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path();
}

}  // namespace

struct CTLSchemas::Grammar {
    explicit Grammar(const fs::path& file) : pool(xercesc::XMLPlatformUtils::fgMemoryManager) {
        CheckingParser parser(pool);
        const std::string failure = failureOf(parser, file);
        if (!failure.empty())
            throw CTLError(CTLError::kFailed, "cannot read the schema " + file.string() + ": " + failure);
        words.readFrom(file);
        for (const char* const shared : {"values.xsd", "vrx.xsd"})
            words.readFrom(file.parent_path() / shared);
    }

    xercesc::XMLGrammarPoolImpl pool;
    Words words;
};

fs::path CTLSchemas::folder(const fs::path& given) {
    if (!given.empty()) return fs::absolute(given);
    std::error_code error;
    const fs::path beside = programFolder() / "schemas";
    const fs::path installed = fs::path(VBS_DATA_FOLDER) / "schemas";
    return fs::exists(beside, error) ? beside : installed;
}

CTLSchemas::CTLSchemas(const fs::path& folder) : m_folder(folder) {}

CTLSchemas::~CTLSchemas() = default;

CTLSchemas::Grammar& CTLSchemas::grammarOf(CTLDocument::Kind kind) {
    std::unique_ptr<Grammar>& grammar = m_grammars[kind];
    if (!grammar) grammar = std::make_unique<Grammar>(m_folder / fileOf(kind));
    return *grammar;
}

void CTLSchemas::load() {
    for (const auto kind :
         {CTLDocument::Kind::Bootstrap, CTLDocument::Kind::Logging, CTLDocument::Kind::Startup})
        grammarOf(kind);
}

void CTLSchemas::validate(const CTLDocument& document, CTLDocument::Kind kind, CTLFindings& findings) {
    Grammar& grammar = grammarOf(kind);
    CheckingParser parser(grammar.pool);
    parser.takeDocuments();
    if (hasTooLong(document, grammar.words, findings)) return;
    const std::string& text = document.text();
    try {
        parser.parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(text.data()), text.size(),
                                                "document"));
    } catch (const xercesc::OutOfMemoryException&) {
        throw CTLError(CTLError::kFailed, document.file() + ": no memory");
    } catch (const xercesc::XMLException& exception) {
        findings.add(document.at(Severity::Error, "schema", document.root(), "",
                                 TVLIDOM_Text::fromXml(exception.getMessage()).str()));
    }
    Translation translation(document, grammar.words, findings);
    for (const Complaint& complaint : parser.complaints())
        translation.take(complaint);
}
