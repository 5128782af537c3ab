#include "ZORArgVector.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "ZORHelpers.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORArgVector");

// A parameter without a complete condition is always wanted.
bool isWanted(const TVLIDOM_Element& param) {
    std::string name = param.getAttribute("condName").str();
    if (name.empty()) return true;
    ZORPropertyInserter::getInstance()->insertProperties(name);
    const I18NString value = param.getAttribute("condValue");
    return name.empty() || value.empty() || name == value.str();
}

}  // namespace

ZORArgVector::~ZORArgVector() {
    try {
        reset();
    } catch (...) {
        // Nothing more can be freed; nobody is left to be told.
    }
}

void ZORArgVector::reset() {
    for (char* const argument : *this)
        std::free(argument);
    clear();
}

void ZORArgVector::add(const char* argument) {
    push_back(argument == nullptr ? nullptr : strdup(argument));
}

void ZORArgVector::prepare(TVLIDOM_Element element) {
    const TVLIDOM_NodeList params = element.getElementsByTagName("param");
    for (std::size_t i = 0; i < params.getLength(); ++i) {
        const TVLIDOM_Element param(params.item(i));
        I18NString text;
        ZORHelpers::getElemText(param, text);
        if (!isWanted(param)) continue;
        std::string argument = text.str();
        ZORPropertyInserter::getInstance()->insertProperties(argument);
        logger->log(ZOR_DEBUG, "adding arg \"%s\"", argument.c_str());
        add(argument.c_str());
    }
}

void ZORArgVector::terminateList() {
    add(nullptr);
}
