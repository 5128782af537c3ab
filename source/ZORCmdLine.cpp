#include "ZORCmdLine.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "TVLByteBuffer.h"
#include "TVLNumber.h"
#include "TVLStringTokenizer.h"
#include "ZORLogger.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORCmdLine");

constexpr char kQuotedBlank = '\n';

}  // namespace

ZORCmdLine::ZORCmdLine() = default;

ZORCmdLine::ZORCmdLine(int argc, char** argv) {
    prepare(argc, argv);
}

ZORCmdLine::ZORCmdLine(char* text) {
    prepare(text);
}

ZORCmdLine::~ZORCmdLine() = default;

void ZORCmdLine::prepare(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        m_args.emplace_back(argv[i]);
}

void ZORCmdLine::prepare(char* text) {
    logger->log(ZOR_DEBUG, "Preparing cmdline from string: \"%s\"", text);
    if (text == nullptr) return;
    std::vector<char> work(std::strlen(text) + 1);
    preProcessQuotes(text, work.data());
    TVLStringTokenizer tokens(work.data(), " ");
    while (tokens.hasMoreTokens()) {
        std::string token = tokens.nextToken();
        std::replace(token.begin(), token.end(), kQuotedBlank, ' ');
        m_args.emplace_back(token.c_str());
    }
    log();
}

void ZORCmdLine::preProcessQuotes(char* in, char* out) {
    if (in == nullptr || out == nullptr) return;
    bool quoted = false;
    for (; *in != '\0'; ++in) {
        if (*in == '"') {
            quoted = !quoted;
            continue;
        }
        *out++ = quoted && *in == ' ' ? kQuotedBlank : *in;
    }
    *out = '\0';
}

void ZORCmdLine::log() {
    if (!logger->writes(ZOR_DEBUG)) return;
    TVLByteBuffer text(256, 256);
    text << "Command line as parsed:";
    for (const ZORCLArg& arg : m_args) {
        text << "\n" << arg.getName();
        if (arg.hasValue()) text << "=\"" << arg.getValue() << "\"";
    }
    logger->log(ZOR_DEBUG, "%s", text.str());
}

int ZORCmdLine::find(const char* name, int start) const {
    for (int i = std::max(start, 0); i < getArgCount(); ++i) {
        if (strcasecmp(m_args[static_cast<std::size_t>(i)].getName().c_str(), name) == 0) return i;
    }
    return -1;
}

int ZORCmdLine::getValue(const char* name, std::string& out, int start) const {
    const int index = find(name, start);
    if (index < 0) return 0;
    const ZORCLArg& arg = m_args[static_cast<std::size_t>(index)];
    if (!arg.hasValue()) return 0;
    out = arg.getValue();
    return 1;
}

int ZORCmdLine::getIntValue(const char* name, int& out, int start) const {
    const int index = find(name, start);
    if (index < 0) return 0;
    const ZORCLArg& arg = m_args[static_cast<std::size_t>(index)];
    if (!arg.isNumber()) return 0;
    out = TVLNumber::parse(arg.getValue());
    return 1;
}
