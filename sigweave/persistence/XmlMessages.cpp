#include "sigweave/persistence/XmlMessages.h"

#include <algorithm>
#include <climits>
#include <iterator>

#include "sigweave/persistence/XmlBuilder.h"
#include "sigweave/services/StringResources.h"

namespace tc {
namespace {

// Rows 1 to 4 are about failures that this engine does not have.
constexpr _TC_StrResource MESSAGES[] = {
    {NOT_CREATED, "The XML document cannot be created", "Das XML Dokument kann nicht erzeugt werden"},
    {1,
     "Microsoft XML engine could not be initialized: '%s'.\nSuppose MSXML3 is not installed. Is is part of "
     "Microsoft Internet Explorer 5, but resides on the SIGWEAVE installation CD too.",
     "Microsoft XML engine konnte nicht initialisiert werden: '%s'.\nVermutlich ist MSXML3 nicht "
     "installiert. "
     "Es ist Bestandteil von Microsoft Internet Explorer 5, befindet sich aber auch auf der Installations-CD "
     "von SIGWEAVE."},
    {2, "Cannot set asynchronous loading to %d", "Asynchrones Laden kann nicht auf %d gesetzt werden"},
    {3, "The XML document cannot be released: '%s'", "Das XML Dokument kann nicht freigegeben werden: '%s'"},
    {4, "Cannot set preserving whitespace to %d", "Leerzeichen beibehalten kann nicht auf %d gesetzt werden"},
    {NOT_OPENED, "Cannot open file %s for writing: %s",
     "Die Datei '%s' kann nicht zum Schreiben geöffnet werden: %s"},
    {NOT_PARSED, "The XML source could not be parsed: %d, '%s' at line %d/%d (file position %d, source '%s')",
     "Die XML-Quelle konnte nicht interpretiert werden: %d, '%s' bei Zeile %d/%d (Datei Position %d, Quelle "
     "'%s')"},
    {NOT_LOADED, "The XML source could not be loaded: '%s'",
     "Der XML-Quelle konnte nicht geladen werden: '%s'"},
    {NO_SINGLE_NODE, "Cannot select single node '%s'", "Selektieren des Einzeleintrags '%s' fehlgeschlagen"},
    {NO_NODES, "Cannot select nodes '%s'", "Selektieren der Mehrfacheinträge '%s' fehlgeschlagen"},
    {NO_NEXT_NODE, "Cannot select next node: '%s'", "Selektieren des nächsten Eintrags fehlgeschlagen: '%s'"},
    {NO_TYPE, "Cannot read node type", "Typ den Eintrags kann nicht gelesen werden"},
    {NO_NAME, "Cannot read node name", "Name den Eintrags kann nicht gelesen werden"},
    {NO_VALUE, "Cannot read node value", "Wert den Eintrags kann nicht gelesen werden"},
    {NO_TEXT, "Cannot read node text", "Text den Eintrags kann nicht gelesen werden"},
    {NO_XML, "Cannot read node XML", "XML den Eintrags kann nicht gelesen werden"},
    {NO_ELEMENT, "Cannot create element '%s'", "Erzeugen des Elements '%s' fehlgeschlagen"},
    {NOT_APPENDED, "Cannot append created node '%s' as child",
     "Anfügen des Eintrags '%s' als Child fehlgeschlagen"},
    {TEXT_NOT_SET, "Cannot set node text", "Text den Eintrags kann nicht gesetzt werden"},
    {NOT_SAVED, "The XML document could not be saved", "Das XML Dokument konnte nicht gespeichert werden"},
    {ATTRIBUTE_NOT_SET, "Cannot set attribute '%s' with value '%s'",
     "Setzen des Attributs '%s' mit dem Wert '%s' fehlgeschlagen"},
};

}  // namespace

TCString FormatXmlMessageV(int message, va_list inserts) {
    return TCString::FormatVS(LoadStrRes(message, static_cast<int>(std::size(MESSAGES)), MESSAGES), inserts);
}

TCString FormatXmlMessage(int message, ...) {
    va_list inserts;
    va_start(inserts, message);
    TCString text = FormatXmlMessageV(message, inserts);
    va_end(inserts);
    return text;
}

TCString FormatXmlMessage(const XmlParseError& error) {
    return FormatXmlMessage(NOT_PARSED, error.code, error.reason.c_str(), error.line, error.column,
                            static_cast<int>(std::min<long>(error.position, INT_MAX)), error.source.c_str());
}

}  // namespace tc
