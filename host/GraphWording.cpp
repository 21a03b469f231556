#include "host/GraphWording.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr GraphWording TEXT_WORDING = {
    .addModuleId = Bilingual("add a line module=ID", "ergänzen Sie eine Zeile module=ID"),
    .addModules = Bilingual("add a section [name] with module=ID for each",
                            "ergänzen Sie für jedes einen Abschnitt [name] mit module=ID"),
    .addLines =
        Bilingual("add a section [lines] with lines as instance.Output=instance.Input",
                  "ergänzen Sie einen Abschnitt [lines] mit Zeilen wie Instanz.Ausgang=Instanz.Eingang"),
    .acceptDifferences = Bilingual("write accept=yes in the section [lines]",
                                   "schreiben Sie accept=yes in den Abschnitt [lines]"),
    .addSetting = Bilingual("add a line %1=...", "ergänzen Sie eine Zeile %1=..."),
    .addLineTo = Bilingual("add a line ...=%1 to the section [lines]",
                           "ergänzen Sie im Abschnitt [lines] eine Zeile ...=%1"),
};

constexpr GraphWording XML_WORDING = {
    .addModuleId = Bilingual("add the attribute kind=\"ID\"", "ergänzen Sie das Attribut kind=\"ID\""),
    .addModules = Bilingual("add an element <Module name=\"name\" kind=\"ID\"/> for each",
                            "ergänzen Sie für jedes ein Element <Module name=\"name\" kind=\"ID\"/>"),
    .addLines = Bilingual("add elements <Line from=\"instance.Output\" to=\"instance.Input\"/>",
                          "ergänzen Sie Elemente <Line from=\"Instanz.Ausgang\" to=\"Instanz.Eingang\"/>"),
    .acceptDifferences = Bilingual("write <Graph accept=\"yes\">", "schreiben Sie <Graph accept=\"yes\">"),
    .addSetting = Bilingual("add an element <Setting name=\"%1\">...</Setting>",
                            "ergänzen Sie ein Element <Setting name=\"%1\">...</Setting>"),
    .addLineTo = Bilingual("add an element <Line from=\"...\" to=\"%1\"/>",
                           "ergänzen Sie ein Element <Line from=\"...\" to=\"%1\"/>"),
};

}  // namespace

const GraphWording& GraphWording::Of(GraphForm form) {
    return form == GraphForm::Text ? TEXT_WORDING : XML_WORDING;
}

}  // namespace host
