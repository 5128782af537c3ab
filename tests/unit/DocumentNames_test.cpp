// What the service asks the documents for is what the schemas describe, to the last element and attribute: the tables
// of the guide and of the manual page are made of the schemas, so nothing that is read stays without a description.

#include <cstddef>
#include <set>
#include <string>

#include "AskedNames.h"
#include "FileContent.h"
#include "TVLIDOM_Helper.h"
#include "TestWorld.h"

namespace {

using Names = std::set<std::string>;

bool isNamed(const TVLIDOM_Node& node, const char* name) {
    return TVLIDOM_Helper::isElementNamed(node, name);
}

// A schema as far as names go. The elements of one with a namespace have its prefix.
class Schema {
  public:
    explicit Schema(const char* file, const char* prefix = "")
        : m_document(contentOf(std::string(VBS_SCHEMAS "/") + file)), m_prefix(prefix) {}

    void collect(Names& elements, Names& attributes) const {
        const TVLIDOM_NodeList declared = all(m_document.root(), "xs:element");
        for (std::size_t i = 0; i < declared.getLength(); ++i) {
            const TVLIDOM_Element element(declared.item(i));
            // What a root is called, the service does not look at.
            const bool isRoot = element.getParentNode() == m_document.root();
            const std::string name = m_prefix + valueOf(element, "name");
            if (!isRoot) elements.insert(name);
            for (const std::string& attribute : attributesOf(element, true))
                attributes.insert((isRoot ? "root" : name) + " " + attribute);
        }
    }

    // How an element begins that has all of its attributes, or those only that must be there.
    std::string beginOf(const std::string& name, const TVLIDOM_Element& element, bool full) const {
        std::string text = "<" + name;
        for (const std::string& attribute : attributesOf(element, full))
            text += " " + attribute + "='1'";
        return text + ">";
    }
    TVLIDOM_Element root() const {
        return TVLIDOM_Helper::findFirstElementWithName(m_document.root(), "xs:element");
    }
    // The elements in the type of that name.
    TVLIDOM_NodeList elementsIn(const std::string& type) const {
        return all(
            TVLIDOM_Helper::findFirstElementWithAttribute(m_document.root(), "xs:complexType", "name", type),
            "xs:element");
    }

  private:
    static TVLIDOM_NodeList all(const TVLIDOM_Element& from, const char* name) {
        return from.getElementsByTagName(name);
    }
    static std::string valueOf(const TVLIDOM_Element& element, const char* attribute) {
        return element.getAttribute(attribute).str();
    }

    Names attributesOf(const TVLIDOM_Element& element, bool full) const {
        Names names;
        const TVLIDOM_NodeList children = element.getChildNodes();
        for (std::size_t i = 0; i < children.getLength(); ++i)
            collectAttributes(TVLIDOM_Element(children.item(i)), full, names);
        collectType(valueOf(element, "type"), full, names);
        return names;
    }
    // Of a type, and of the types and groups that it refers to, but not of the elements in it.
    void collectAttributes(const TVLIDOM_Element& part, bool full, Names& names) const {
        if (part.isNull() || isNamed(part, "xs:element")) return;
        // A fixed one only lets the schema compare; nobody writes it.
        const bool isWanted = full || valueOf(part, "use") == "required";
        if (isNamed(part, "xs:attribute") && isWanted && valueOf(part, "fixed").empty())
            names.insert(valueOf(part, "name"));
        if (isNamed(part, "xs:attributeGroup")) collectType(valueOf(part, "ref"), full, names);
        if (isNamed(part, "xs:extension")) collectType(valueOf(part, "base"), full, names);
        const TVLIDOM_NodeList children = part.getChildNodes();
        for (std::size_t i = 0; i < children.getLength(); ++i)
            collectAttributes(TVLIDOM_Element(children.item(i)), full, names);
    }
    void collectType(const std::string& type, bool full, Names& names) const {
        const std::string local = type.substr(type.find(':') + 1);
        for (const char* const kind : {"xs:complexType", "xs:attributeGroup"}) {
            const TVLIDOM_NodeList types = all(m_document.root(), kind);
            for (std::size_t i = 0; i < types.getLength(); ++i) {
                const TVLIDOM_Element each(types.item(i));
                if (!type.empty() && valueOf(each, "name") == local) collectAttributes(each, full, names);
            }
        }
    }

    XmlText m_document;
    std::string m_prefix;
};

class DocumentNamesTest : public WorldTest {
  protected:
    void readStartup() {
        writeStartup(
            "<ZOR><vrx:instances name='zor'><vrx:instance name='a'/></vrx:instances>"
            "<vrx:parameter name='shutdownPort'><vrx:value xsi:type='xsd:unsignedShort'>1</vrx:value>"
            "</vrx:parameter></ZOR><temp>../temp</temp>"
            "<components><component name='server' version='1'/></components>");
        ASSERT_EQ(service.initZORElement(), 1);
        service.prepareProperties();
    }
    // Every element and, with `full`, every attribute that a document can hold; without, only those that must be there.
    // The root and the ways to stop are written as the schema has them, a process for each way.
    static std::string bootstrapText(bool full, const Schema& schema) {
        const auto also = [full](const char* attributes) { return std::string(full ? attributes : ""); };
        const std::string program = "<path" + also(" quoteAsParam='true'") + ">p</path><param" +
                                    also(" condName='${java_vendor}' condValue='b'") + ">c</param>";
        const std::string spawn = "<spawn" + also(" sync='0' wait_time='0'") + ">" + program + "</spawn>";
        const std::string send = "<socketSend URI='tcp://a:1' commandString='b'" +
                                 also(
                                     " sockIOTimeoutSec='1' responseSize='9' responseOK='o' responseFatal='f'"
                                     " responseRetry='r' dependency='server' wait_time='0'") +
                                 "/>";
        std::string children;
        const TVLIDOM_NodeList waysToStop = schema.elementsIn("stop");
        for (std::size_t i = 0; i < waysToStop.getLength(); ++i) {
            const TVLIDOM_Element way(waysToStop.item(i));
            const std::string type = way.getAttribute("name").str();
            // A program means something to one of them only, and does not hurt the others.
            children += "<process" + also(" name='n'") + "><start>" + spawn + "</start><stop type='" + type +
                        "'>" + schema.beginOf(type, way, full) + program + "</" + type + "></stop><ping>" +
                        send + "</ping></process>";
        }
        return schema.beginOf("root", schema.root(), full) + "<processManager" +
               also(" pollIntervalsec='1' checkForShutdownIntervalms='1'") + "/>" + children +
               "<daemonSpawn><path>d</path></daemonSpawn></root>";
    }
    void readBootstrap(const std::string& text, std::size_t children) {
        const std::size_t before = service.getChildren().size();
        const XmlText document(text);
        ASSERT_EQ(service.parseParams(document.root()), 1);
        ASSERT_EQ(service.getChildren().size(), before + children);
    }
    void readLogging() const {
        const std::string files = "<logFiles><file name='../logs/a'/><stdout/><stderr/></logFiles>";
        for (const char* const section : {"run", "start", "stop", "isrunning", "default"}) {
            folder.write("bin/log.xml", std::string("<root><") + section + "><logging>" + files +
                                            "</logging></" + section + "></root>");
            ASSERT_EQ(ZORLoggerFactory::getInstance()->prepare("log.xml", section), 1) << section;
        }
    }
};

TEST_F(DocumentNamesTest, WhatIsAskedForIsWhatTheSchemasDescribe) {
    Names elements;
    Names attributes;
    Schema("bootstrap.xsd").collect(elements, attributes);
    Schema("zorlogconfig.xsd").collect(elements, attributes);
    Schema("startup.xsd").collect(elements, attributes);
    Schema("vrx.xsd", "vrx:").collect(elements, attributes);
    ASSERT_GT(elements.size(), 25U);
    // Each schema has it without a word, and the text of the value's annotation tells of it.
    attributes.insert("vrx:value xsi:type");

    const Schema schema("bootstrap.xsd");
    const std::size_t children = schema.elementsIn("stop").getLength();
    const std::string sparse = bootstrapText(false, schema);
    const std::string full = bootstrapText(true, schema);
    const AskedNames asked;
    readStartup();
    readBootstrap(sparse, children);
    readBootstrap(full, children);
    readLogging();
    EXPECT_EQ(asked.elements(), elements);
    // A spawn that starts the service is written like any other.
    EXPECT_EQ(asked.attributes(), attributes);
}

}  // namespace
