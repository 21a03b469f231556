#pragma once

#include <string>
#include <string_view>

#include "host/GraphBuilder.h"

class TCXML;

namespace host {

// The form of a graph as an XML document:
//
//     <Graph accept="yes">
//       <Module name="voice" kind="SoundFile"><Setting name="file">a.wav</Setting></Module>
//       <Line from="voice.Channel 1" to="levels.Signal"/>
//     </Graph>
//
// In names and values a backslash begins an escape, as in the quoted values of parameter text.

// Whether a file with that content is an XML document, well-formed or not.
bool LooksLikeXml(std::string_view text);
void ReadGraphXml(const std::string& text, GraphBuilder& builder);
// False, with the reason in `xml`, when the document could not be made.
bool WriteGraphXml(const GraphFile& graph, TCXML& xml);

}  // namespace host
