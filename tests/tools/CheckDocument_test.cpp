// Documents with the places of what is in them, and the schemas that they are held against.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CTLDocument.h"
#include "CTLError.h"
#include "CTLFindings.h"
#include "CTLNearest.h"
#include "CTLSchemas.h"
#include "TestKit.h"

namespace fs = std::filesystem;
using Kind = CTLDocument::Kind;

namespace {

constexpr const char* kSchemas = VBS_SOURCE_FOLDER "/schemas";

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class CheckDocumentTest : public ServiceTest {
  protected:
    const CTLDocument& read(const std::string& text) {
        folder.write("temp/document.xml", text);
        m_document = std::make_unique<CTLDocument>(folder.path("temp/document.xml"));
        return *m_document;
    }

    // "LINE:COLUMN text" of each finding.
    std::vector<std::string> complaints(const std::string& text, Kind kind = Kind::Bootstrap) {
        CTLFindings findings;
        const CTLDocument& document = read(text);
        if (!document.isParsed()) {
            findings.add(document.error());
        } else {
            m_schemas.validate(document, kind, findings);
        }
        std::vector<std::string> lines;
        for (const CTLFinding& finding : findings.sorted())
            lines.push_back(std::to_string(finding.place.line) + ":" + std::to_string(finding.place.column) +
                            " " + finding.text);
        return lines;
    }

  private:
    CTLSchemas m_schemas{kSchemas};
    std::unique_ptr<CTLDocument> m_document;
};

std::string placeOf(const CTLPlace& place) {
    return std::to_string(place.line) + ":" + std::to_string(place.column);
}

// ---- Places ----

TEST_F(CheckDocumentTest, AnElementStandsWhereItsTagBegins) {
    const CTLDocument& document =
        read("<a>\n  <b x='1'\n     yy=\"2\"/><!-- < --><c\r\n/>\r\n <d>>]]</d></a>");
    ASSERT_EQ(document.elements().size(), 4U);
    std::string places;
    for (const CTLDocument::Element& element : document.elements())
        places += element.handle.getTagName().str() + placeOf(element.place) + " ";
    EXPECT_EQ(places, "a1:1 b2:3 c3:24 d5:2 ");
    EXPECT_EQ(placeOf(document.placeOf(document.elements()[1], "yy")), "3:6");
    EXPECT_EQ(placeOf(document.placeOf(document.elements()[1], "y")), "2:3");
}

TEST_F(CheckDocumentTest, ColumnsCountCharactersWhateverTheirBytes) {
    const CTLDocument& document = read("\xEF\xBB\xBF<a>\xC3\xA4\xE2\x82\xAC<b z=\"\xC3\xA4\" y=\"\"/></a>");
    EXPECT_EQ(placeOf(document.elements()[0].place), "1:1");
    EXPECT_EQ(placeOf(document.elements()[1].place), "1:6");
    EXPECT_EQ(placeOf(document.placeOf(document.elements()[1], "y")), "1:15");
}

TEST_F(CheckDocumentTest, AValueIsNotTakenForAnAttribute) {
    const CTLDocument& document = read("<a one=\" two='3' \"\n two = '4'/>");
    EXPECT_EQ(placeOf(document.placeOf(document.elements()[0], "two")), "2:2");
}

TEST_F(CheckDocumentTest, ALineOfAnyLengthIsPlacedInOneGo) {
    std::string text = "<a>";
    for (int i = 0; i < 100'000; ++i)
        text += "<b c=\"\" d=\"\"/>";
    const CTLDocument& document = read(text + "</a>");
    const CTLDocument::Element& last = document.elements().back();
    EXPECT_EQ(placeOf(last.place), "1:" + std::to_string(text.size() + 1 - 14));
    EXPECT_EQ(placeOf(document.placeOf(last, "d")), "1:" + std::to_string(text.size() + 1 - 6));
}

TEST_F(CheckDocumentTest, AnElementKnowsItsChildOfTheService) {
    const CTLDocument& document = read(
        "<bootstrap><process name='a'><start/></process><process "
        "name='b'><x><y/></x></process><z/></bootstrap>");
    std::string children;
    for (const CTLDocument::Element& element : document.elements())
        children += document.childOf(element) + ",";
    EXPECT_EQ(children, ",a,a,b,b,b,,");
}

TEST_F(CheckDocumentTest, WhatComesFromAnEntityStandsWhereItIsReferredTo) {
    const CTLDocument& document = read("<!DOCTYPE a [<!ENTITY e '<b/><c/>'>]>\n<a>\n  &e;</a>");
    ASSERT_EQ(document.elements().size(), 3U);
    EXPECT_EQ(document.elements()[2].place.line, 3U);
}

TEST_F(CheckDocumentTest, ADocumentInAnotherEncodingStillHasLines) {
    std::string wide = "\xFF\xFE";
    for (const char character : std::string("<a>\n<b/></a>"))
        wide += std::string{character, '\0'};
    const CTLDocument& document = read(wide);
    ASSERT_EQ(document.elements().size(), 2U);
    EXPECT_EQ(document.elements()[1].place.line, 2U);
}

TEST_F(CheckDocumentTest, WhatIsNoXmlHasTheParsersPlace) {
    EXPECT_EQ(complaints("<bootstrap>\n<start></strat></bootstrap>"),
              std::vector<std::string>{"2:10 expected end of tag 'start'"});
    EXPECT_EQ(read("").error().text.substr(0, 7), "invalid");
}

TEST_F(CheckDocumentTest, AFileThatIsNotThereSaysSo) {
    const CTLDocument document(folder.path("temp/none.xml"));
    EXPECT_FALSE(document.isThere());
    EXPECT_EQ(document.error().text, "cannot be read: No such file or directory");
}

TEST_F(CheckDocumentTest, AChangeAfterReadingIsSeen) {
    const CTLDocument& document = read("<a/>");
    EXPECT_TRUE(document.isCurrent());
    folder.write("temp/document.xml", "<b/>");
    EXPECT_FALSE(document.isCurrent());
    fs::remove(folder.path("temp/document.xml"));
    EXPECT_FALSE(document.isCurrent());
}

// ---- Schemas ----

const std::string kGood =
    "<bootstrap>\n<process name=\"a\">\n<start><spawn><path>/bin/true</path></spawn></start>\n"
    "<stop type=\"signal\"><signal signal=\"15\"/></stop>\n</process>\n"
    "<daemonSpawn><path>/bin/true</path></daemonSpawn>\n</bootstrap>\n";

std::string changed(const std::string& from, const std::string& to) {
    std::string text = kGood;
    return text.replace(text.find(from), from.size(), to);
}

TEST_F(CheckDocumentTest, AGoodDocumentIsAccepted) {
    EXPECT_EQ(complaints(kGood), std::vector<std::string>{});
}

TEST_F(CheckDocumentTest, MistakesAreToldInAnAdministratorsWords) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(complaints(changed("<stop type", "<stop tpye")),
              (Lines{"4:1 <stop> lacks the attribute \"type\"",
                     "4:7 unknown attribute \"tpye\" of <stop>: did you mean \"type\"?"}));
    EXPECT_EQ(complaints(changed("</process>", "<pings a=\"\"/></process>")),
              Lines{"5:1 unknown element <pings>: did you mean \"ping\"?"});
    EXPECT_EQ(complaints(changed("</process>", "<stop/></process>")).back(),
              "5:1 <stop> does not belong here in <process>, or not once more");
    EXPECT_EQ(complaints(changed("<signal signal=\"15\"/>", "")).front(),
              "4:1 <stop> is not complete: it has (spawn|socketSend|signal)");
    EXPECT_EQ(complaints(changed("<daemonSpawn><path>/bin/true</path></daemonSpawn>", "")),
              Lines{"1:1 <bootstrap> is not complete: it lacks a required element"});
    EXPECT_EQ(complaints(changed("type=\"signal\"", "type=\"spawn\"")),
              Lines{"4:7 the element in <stop> is not the one that its type names"});
    EXPECT_EQ(
        complaints(changed("</process>\n", "</process>\n" + kGood.substr(12, kGood.find("</process>") - 2))),
        Lines{"6:10 there is another <process> of this name"});
    EXPECT_EQ(
        complaints(changed("<path>", "<path> ")),
        Lines{"3:15 <path>: value ' /bin/true' does not match regular expression facet '\\S|\\S.*\\S'"});
}

// To match it with a pattern would take more of the stack than there is.
TEST_F(CheckDocumentTest, ATextOfAnyLengthHoldsNothingUp) {
    const std::string with = " has more than 4096 bytes: this document is not held against its schema";
    const std::string longText(1'000'000, 'x');
    EXPECT_EQ(complaints(changed("/bin/true", longText)), std::vector<std::string>{"3:15 <path>" + with});
    EXPECT_EQ(complaints(changed("/bin/true", "x<!---->" + longText)),
              std::vector<std::string>{"3:15 <path>" + with});
    EXPECT_EQ(complaints(changed("name=\"a\"", "name=\"" + longText + "\"")),
              std::vector<std::string>{"2:1 attribute \"name\"" + with});
    EXPECT_EQ(complaints(changed("</spawn>", "<param>" + longText + "</param></spawn>")),
              std::vector<std::string>{});
    const std::string longest(4090, '$');
    EXPECT_EQ(complaints(changed("name=\"a\"", "name=\"" + longest + "{\"")).size(), 1U);
    const std::string command =
        "<stop type=\"socketSend\"><socketSend commandString=\"" + longText + "\" URI=\"tcp://h:";
    std::string references;
    for (int i = 0; i < 1000; ++i)
        references += "${a}";
    EXPECT_EQ(
        complaints(changed("<stop type=\"signal\"><signal signal=\"15\"/>", command + references + " \"/>"))
            .size(),
        1U);
}

TEST_F(CheckDocumentTest, ASchemaThatADocumentNamesIsNotLookedAt) {
    const std::string named =
        "<bootstrap xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xsi:noNamespaceSchemaLocation=\"" +
        folder.path("temp/none.xsd") + "\">";
    EXPECT_EQ(complaints(changed("<bootstrap>", named)), std::vector<std::string>{});
}

TEST_F(CheckDocumentTest, ADocumentWithEntitiesOfItsOwnIsAccepted) {
    const std::string typed = "<!DOCTYPE bootstrap [<!ENTITY p \"/bin/true\"> <!ELEMENT bootstrap ANY>]>\n";
    EXPECT_EQ(complaints(typed + changed("/bin/true", "&p;")), std::vector<std::string>{});
}

TEST_F(CheckDocumentTest, ASchemaThatIsNotThereIsAnErrorOfTheTool) {
    CTLSchemas schemas(folder.path("temp"));
    CTLFindings findings;
    try {
        schemas.validate(read(kGood), Kind::Bootstrap, findings);
        FAIL() << "found a schema";
    } catch (const CTLError& error) {
        EXPECT_EQ(error.exitCode(), 70);
        EXPECT_NE(std::string(error.what()).find("bootstrap.xsd"), std::string::npos) << error.what();
    }
}

TEST_F(CheckDocumentTest, ADamagedSchemaIsAnErrorOfTheTool) {
    folder.write("temp/bootstrap.xsd", contentOf(std::string(kSchemas) + "/bootstrap.xsd"));
    CTLSchemas schemas(folder.path("temp"));  // values.xsd is not beside it
    CTLFindings findings;
    EXPECT_THROW(schemas.validate(read(kGood), Kind::Bootstrap, findings), CTLError);
}

// ---- Every word misspelt in its turn ----

struct Sample {
    const char* file;
    Kind kind;
};
constexpr Sample kSamples[] = {{"sample/install/bin/bootstrap_linuxi38632.xml", Kind::Bootstrap},
                               {"sample/install/bin/zorlogconfig.xml", Kind::Logging},
                               {"sample/install/configuration/startup.xml", Kind::Startup},
                               {"sample/tomcat/bin/bootstrap_linuxi38632.xml", Kind::Bootstrap},
                               {"sample/tomcat/configuration/startup.xml", Kind::Startup}};

// Where words are, that are misspelt together, and in which line the first is.
struct Slip {
    std::vector<std::size_t> at;
    std::size_t line = 0;
    bool isPrefix = false;  // which is missed where it is used
};

std::size_t lineOf(const std::string& text, std::size_t at) {
    return static_cast<std::size_t>(
               std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n')) +
           1;
}

// Names of elements in both tags, and names of attributes.
std::vector<Slip> slipsIn(const CTLDocument& document) {
    std::vector<Slip> slips;
    for (const CTLDocument::Element& element : document.elements()) {
        const std::string name = element.handle.getTagName().str();
        Slip slip{{element.begin + name.size()}, element.place.line};
        const std::size_t end = document.text().rfind("</" + name, element.end);
        if (document.text().compare(element.end - 2, 2, "/>") != 0) slip.at.push_back(end + 1 + name.size());
        slips.push_back(slip);
        const std::size_t tagEnd = document.text().find('>', element.begin);
        const std::string tag = document.text().substr(element.begin, tagEnd - element.begin);
        for (std::size_t equals = tag.find("=\""); equals != std::string::npos;
             equals = tag.find("=\"", tag.find('"', equals + 2))) {
            const std::size_t at = element.begin + equals - 1;
            const std::size_t nameAt = tag.find_last_of(" \n", equals) + 1;
            slips.push_back({{at}, lineOf(document.text(), at), tag.compare(nameAt, 6, "xmlns:") == 0});
        }
    }
    return slips;
}

// The last letter becomes another one; from behind, so that places stay.
std::string withSlip(std::string text, const Slip& slip) {
    for (const std::size_t at : slip.at)
        text[at] = text[at] == 'x' ? 'y' : 'x';
    return text;
}

class CheckMutationTest : public CheckDocumentTest, public testing::WithParamInterface<Sample> {};

TEST_P(CheckMutationTest, EveryMisspeltElementAndAttributeIsFoundInItsLine) {
    const std::string text = contentOf(fs::path(VBS_SOURCE_FOLDER) / GetParam().file);
    EXPECT_EQ(complaints(text, GetParam().kind), std::vector<std::string>{});
    const std::vector<Slip> slips = slipsIn(read(text));
    EXPECT_GT(slips.size(), 20U);
    for (const Slip& slip : slips) {
        const std::string mutant = withSlip(text, slip);
        const std::vector<std::string> found = complaints(mutant, GetParam().kind);
        const std::string line = std::to_string(slip.line) + ":";
        EXPECT_TRUE(std::any_of(
            found.begin(), found.end(),
            [&](const std::string& complaint) { return slip.isPrefix || complaint.starts_with(line); }))
            << "misspelt in line " << slip.line << ", column " << slip.at[0] - text.rfind('\n', slip.at[0])
            << ": " << testing::PrintToString(found);
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, CheckMutationTest, testing::ValuesIn(kSamples), [](const auto& sample) {
    std::string name = sample.param.file;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
});

// ---- Near words ----

TEST(NearestTest, TheWordWithTheFewestMistakesIsMeant) {
    const std::set<std::string> words{"dispatcherURI", "dispatcherPort", "temp", "type"};
    EXPECT_EQ(CTLNearest::to("dispacherURI", words), "dispatcherURI");
    EXPECT_EQ(CTLNearest::to("dispatcherPrt", words), "dispatcherPort");
    EXPECT_EQ(CTLNearest::to("tpye", words), "type");
    EXPECT_EQ(CTLNearest::to("TEMP", words), "temp");
    EXPECT_EQ(CTLNearest::to("warmUp", words), "");
    EXPECT_EQ(CTLNearest::to("temp", {"temp"}), "");
    EXPECT_EQ(CTLNearest::to(std::string(1000, 'x'), words), "");
}

// ---- Findings ----

TEST(FindingsTest, TheyAreSortedByPlaceAndToldOnce) {
    CTLFindings findings;
    findings.add({CTLFinding::Severity::Error, "a", "one", {7, 1}, "", "late"});
    findings.add({CTLFinding::Severity::Warning, "a", "two", {1, 1}, "", "other"});
    findings.add({CTLFinding::Severity::Error, "a", "one", {7, 1}, "", "late"});
    findings.add({CTLFinding::Severity::Error, "a", "one", {}, "", "whole"});
    std::string order;
    for (const CTLFinding& finding : findings.sorted())
        order += finding.text + " ";
    EXPECT_EQ(order, "whole late other ");
    EXPECT_EQ(findings.errors(), 2U);
    EXPECT_EQ(findings.warnings(), 1U);
}

TEST(FindingsTest, NothingOfADocumentReachesTheTerminalAsACommand) {
    CTLFindings findings;
    findings.add({CTLFinding::Severity::Error, "a", "f\x1b[2J", {}, "c\r", "a\nb\x07"});
    const CTLFinding finding = findings.sorted().front();
    EXPECT_EQ(finding.file + finding.child + finding.text, "f\\x1b[2Jc\\x0da\\nb\\x07");
}

TEST(FindingsTest, OfADocumentOfMistakesOnlyTheFirstAreKept) {
    CTLFindings findings;
    for (std::size_t i = 0; i < 2 * CTLFindings::kMost; ++i)
        findings.add({CTLFinding::Severity::Error, "a", "f", {i, 1}, "", "t"});
    EXPECT_EQ(findings.sorted().size(), CTLFindings::kMost);
    EXPECT_EQ(findings.errors(), 2 * CTLFindings::kMost);
}

}  // namespace
