#include "TVLDocumentFile.h"

#include "TVLIDOM_Parser.h"

bool TVLDocumentFile::read(TVLFileStream& file, TVLIDOM_Document& document, const Complaints& complaints) {
    if (file.isOpen() == 0) {
        complaints.cannotOpen();
        return false;
    }
    TVLIDOM_Parser parser;
    if (parser.parse(file, document) == 1) return true;
    complaints.cannotParse(parser.getErrorString().c_str());
    return false;
}
