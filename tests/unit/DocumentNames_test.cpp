// What the service asks the documents for is what the schemas describe, to the last element and attribute: the tables
// of the guide and of the manual page are made of the schemas, so nothing that is read stays without a description.

#include <cstddef>
#include <set>
#include <string>
#include <utility>

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
            for (const std::string& attribute : attributesOf(element))
                attributes.insert((isRoot ? "root" : name) + " " + attribute);
        }
    }

  private:
    static TVLIDOM_NodeList all(const TVLIDOM_Element& from, const char* name) {
        return from.getElementsByTagName(name);
    }
    static std::string valueOf(const TVLIDOM_Element& element, const char* attribute) {
        return element.getAttribute(attribute).str();
    }

    Names attributesOf(const TVLIDOM_Element& element) const {
        Names names;
        const TVLIDOM_NodeList children = element.getChildNodes();
        for (std::size_t i = 0; i < children.getLength(); ++i)
            collectAttributes(TVLIDOM_Element(children.item(i)), names);
        collectType(valueOf(element, "type"), names);
        return names;
    }
    // Of a type, and of the types and groups that it refers to, but not of the elements in it.
    void collectAttributes(const TVLIDOM_Element& part, Names& names) const {
        if (part.isNull() || isNamed(part, "xs:element")) return;
        // A fixed one only lets the schema compare; nobody writes it.
        if (isNamed(part, "xs:attribute") && valueOf(part, "fixed").empty())
            names.insert(valueOf(part, "name"));
        if (isNamed(part, "xs:attributeGroup")) collectType(valueOf(part, "ref"), names);
        if (isNamed(part, "xs:extension")) collectType(valueOf(part, "base"), names);
        const TVLIDOM_NodeList children = part.getChildNodes();
        for (std::size_t i = 0; i < children.getLength(); ++i)
            collectAttributes(TVLIDOM_Element(children.item(i)), names);
    }
    void collectType(const std::string& type, Names& names) const {
        const std::string local = type.substr(type.find(':') + 1);
        for (const char* const kind : {"xs:complexType", "xs:attributeGroup"}) {
            const TVLIDOM_NodeList types = all(m_document.root(), kind);
            for (std::size_t i = 0; i < types.getLength(); ++i) {
                const TVLIDOM_Element each(types.item(i));
                if (!type.empty() && valueOf(each, "name") == local) collectAttributes(each, names);
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
    static std::string bootstrapText(bool full) {
        const auto also = [full](const char* attributes) { return std::string(full ? attributes : ""); };
        const std::string spawn = "<spawn" + also(" sync='0' wait_time='0'") + "><path" +
                                  also(" quoteAsParam='true'") + ">p</path><param" +
                                  also(" condName='${java_vendor}' condValue='b'") + ">c</param></spawn>";
        const std::string send = "<socketSend URI='tcp://a:1' commandString='b'" +
                                 also(
                                     " sockIOTimeoutSec='1' responseSize='9' responseOK='o' responseFatal='f'"
                                     " responseRetry='r' dependency='server' wait_time='0'") +
                                 "/>";
        const std::string signal = "<signal signal='15'" + also(" wait_time='0'") + "/>";
        std::string children;
        for (const auto& [type, action] : {std::pair<std::string, std::string>{"spawn", spawn},
                                           {"socketSend", send},
                                           {"signal", signal}}) {
            children += "<process" + also(" name='n'") + "><start>" + spawn + "</start><stop type='" + type +
                        "'>" + action + "</stop><ping>" + send + "</ping></process>";
        }
        return "<root" + also(" startupDelaySec='0' pingRetries='1' pingRetryIntervalSec='1'") +
               "><processManager" + also(" pollIntervalsec='1' checkForShutdownIntervalms='1'") + "/>" +
               children + "<daemonSpawn><path>d</path></daemonSpawn></root>";
    }
    void readBootstrap(bool full) {
        const std::size_t before = service.getChildren().size();
        const XmlText document(bootstrapText(full));
        ASSERT_EQ(service.parseParams(document.root()), 1);
        ASSERT_EQ(service.getChildren().size(), before + 3);
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

    const AskedNames asked;
    readStartup();
    readBootstrap(false);
    readBootstrap(true);
    readLogging();
    EXPECT_EQ(asked.elements(), elements);
    // A spawn that starts the service is written like any other.
    EXPECT_EQ(asked.attributes(), attributes);
}

}  // namespace
