#include "sigweave/persistence/ArchiveParser.h"

bool ArchiveParser::Double(int, const char*, double&) {
    return false;
}

bool ArchiveParser::Binary(int, const char*, TCString&) {
    return false;
}

bool ArchiveParser::StringUnquotedXML(int, const char*, TCString&) {
    return false;
}

bool ArchiveParser::BeginSubsection(int, const char*) {
    return false;
}

void ArchiveParser::EndSubsection() {}
