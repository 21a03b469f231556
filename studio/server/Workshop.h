#pragma once

namespace studio {

// All that creates modules to look at them, in a process of its own: whatever a module does there, the page
// and its server go on. It reads lines of JSON at standard input, the first of which has the `folders` with
// module libraries and the `language`, and answers each of the others with a frame 'T' as RunChild writes
// them. A line has a member `ask`:
//
//     catalogue  -> {modules}: all of them (see DescribeCatalogue)
//     ids        -> {ids}
//     module     -> {modules}: of the `id` alone
//     language   `code`
//     check      `path`, `text` -> see CheckText
//     wire       and `from`, `to` -> {reason}, empty when the line fits
//     form       and `name` of an instance -> its form
//     set        and `line` for the form -> the form, `text` of the graph now, and what was `changed`
//     presets    and `name` -> {presets}
//     keep       and `preset`: its settings under that name
//     load       and `preset` -> as of `set`
//
// Answers the exit code; ends with standard input.
int RunWorkshop();

}  // namespace studio
