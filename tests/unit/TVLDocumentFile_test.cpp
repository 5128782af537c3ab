#include "TVLDocumentFile.h"

#include <stdexcept>
#include <string>

#include "TestKit.h"

namespace {

class TVLDocumentFileTest : public ServiceTest {
  protected:
    bool read(const std::string& content) {
        folder.write("bin/some.xml", content);
        TVLFileStream file(TVLFile::openDocument("some.xml"));
        return readFrom(file);
    }
    bool readFrom(TVLFileStream& file) {
        return TVLDocumentFile::read(
            file, document,
            {[&] { told += "no file;"; }, [&](const char* words) { told += std::string(words) + ";"; }});
    }

    TVLIDOM_Document document;
    std::string told;
};

TEST_F(TVLDocumentFileTest, AWellFormedDocumentIsReadAndNobodyIsTold) {
    EXPECT_TRUE(read("<some name='one'/>"));
    EXPECT_EQ(document.getDocumentElement().getAttribute("name"), "one");
    EXPECT_EQ(told, "");
}

TEST_F(TVLDocumentFileTest, AClosedFileIsTold) {
    TVLFileStream closed;
    EXPECT_FALSE(readFrom(closed));
    EXPECT_EQ(told, "no file;");
}

TEST_F(TVLDocumentFileTest, WhatIsWrongInADocumentIsToldInTheParsersWords) {
    EXPECT_FALSE(read("<some>\n</other>"));
    EXPECT_EQ(told.substr(0, 16), "line 2, column 3") << told;
}

TEST_F(TVLDocumentFileTest, TheDocumentBeforeIsKeptWhenTheNextCannotBeRead) {
    ASSERT_TRUE(read("<some name='one'/>"));
    EXPECT_FALSE(read("<some name='two'>"));
    EXPECT_EQ(document.getDocumentElement().getAttribute("name"), "one");
}

TEST_F(TVLDocumentFileTest, WhatTheComplaintThrowsPassesThrough) {
    TVLFileStream closed;
    EXPECT_THROW(TVLDocumentFile::read(closed, document,
                                       {[] { throw std::runtime_error("none"); }, [](const char*) {}}),
                 std::runtime_error);
}

}  // namespace
