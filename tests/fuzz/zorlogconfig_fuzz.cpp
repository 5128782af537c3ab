// Any bytes as the logging document: read, and turned into destinations, to which a line is then written.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "FuzzService.h"
#include "TVLIDOM_Helper.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

using FuzzTarget::require;

namespace {

constexpr const char* kDocument = "zorlogconfig.xml";
constexpr const char* kSection = "run";

ZORLogger& fuzzLogger() {
    static ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("Fuzz");
    return *logger;
}

// The destinations of the section that will be used; a pair is one with what it is told to do.
struct Expected {
    bool isConfigured = false;
    int level = ZOR_FATAL;
    std::set<std::string> files;
    bool usesStreams = false;

    explicit Expected(const TVLIDOM_Element& root) {
        const TVLIDOM_Element section = TVLIDOM_Helper::findFirstElementWithName(root, kSection);
        const TVLIDOM_Element logging = TVLIDOM_Helper::findFirstElementWithName(section, "logging");
        isConfigured = !logging.isNull();
        readLevel(logging.getAttribute("level").str());
        const TVLIDOM_Element all = TVLIDOM_Helper::findFirstElementWithName(logging, "logFiles");
        const TVLIDOM_NodeList children = all.getChildNodes();
        for (std::size_t i = 0; i < children.getLength(); ++i)
            read(TVLIDOM_Element(children.item(i)));
    }

    bool keepsInside() const {
        return std::all_of(files.begin(), files.end(), [](const std::string& file) {
            return FuzzFolder::keepsInside(file) && file != kDocument;
        });
    }

  private:
    void readLevel(const std::string& name) {
        const std::vector<std::string> names{"FATAL", "ERROR", "WARN", "INFO"};
        if (!name.empty())
            level = static_cast<int>(std::find(names.begin(), names.end(), name) - names.begin());
    }
    void read(const TVLIDOM_Element& destination) {
        const std::string name = destination.getTagName().str();
        if (name == "file")
            files.insert(ZORPropertyInserter::expanded(destination.getAttribute("name").c_str()));
        usesStreams = usesStreams || name == "stdout" || name == "stderr";
    }
};

std::string contentOf(const std::string& path) {
    std::string content(4096, '\0');
    std::FILE* const file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return "";
    content.resize(std::fread(content.data(), 1, content.size(), file));
    std::fclose(file);
    return content;
}

bool hasLine(const std::string& content, const std::string& line) {
    return content.find(" Fuzz " + line + "\n") != std::string::npos;
}

void checkLines(const Expected& expected) {
    fuzzLogger().log(ZOR_FATAL, "the worst %s", "100%");
    fuzzLogger().log(ZOR_INFO, "the news %d", -1);
    for (const std::string& file : expected.files) {
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(file, ignored)) continue;
        const std::string content = contentOf(file);
        require(hasLine(content, "the worst 100%"), "what is fatal is in every log");
        require(hasLine(content, "the news -1") == (expected.level >= ZOR_INFO), "the level decides");
    }
}

void removeFiles(const Expected& expected) {
    for (const std::string& file : expected.files) {
        std::error_code ignored;
        if (std::filesystem::is_regular_file(file, ignored)) std::filesystem::remove(file, ignored);
    }
}

void run(const std::string& bytes) {
    TVLIDOM_Document document;
    const bool isDocument = FuzzService::parse(bytes, document);
    const Expected expected(document.getDocumentElement());
    if (!expected.keepsInside()) return;
    ZORLoggerFactory& factory = *ZORLoggerFactory::getInstance();
    const bool prepared = factory.prepare(kDocument, kSection) != 0;
    require(prepared == (isDocument && expected.isConfigured),
            "logging is configured when the document can be used");
    require(!prepared || factory.getLevel() == expected.level, "the level is the document's");
    if (prepared && !expected.usesStreams) checkLines(expected);
    factory.reset();  // closes the files
    removeFiles(expected);
}

bool setUp(const FuzzFolder& folder) {
    FuzzService::begin();
    ZORPropertyInserter::getInstance()->add("install_path", folder.path("").c_str());
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FuzzFolder folder;
    static const bool ready = setUp(folder);
    require(ready, "set up");
    const std::string bytes = FuzzTarget::textOf(data, size);
    folder.write(std::string("bin/") + kDocument, bytes);
    const FuzzTarget::NothingLeftOpen check;
    FuzzService::logEverythingToNowhere();
    run(bytes);
    ZORLoggerFactory::getInstance()->reset();
    return 0;
}
