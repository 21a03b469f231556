#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace studio {

// The text of a graph that is edited, with every state that it had since it was opened, and the file that it
// belongs to. One thread.
class GraphDocument {
 public:
    // A path at which there is nothing yet is a new graph. False, with the reason, when it cannot be read.
    bool Open(const std::string& filePath, std::string& error);

    const std::string& Path() const { return path; }
    const std::string& Text() const { return text; }
    // Another one after each change.
    std::int64_t Version() const { return version; }
    bool IsChanged() const { return text != stored; }
    bool CanUndo() const { return !undo.empty(); }
    bool CanRedo() const { return !redo.empty(); }

    // Nothing happens when the text is the same. Changes with the same `run` (not empty) that follow each
    // other are undone together, as those of one who types.
    void Change(const std::string& newText, const std::string& run = {});
    void Undo();
    void Redo();

    enum class Saving { Done, ChangedOutside, Failed };
    // Puts the text in the file. Unless forced, not over what another program wrote there since it was read
    // or saved.
    Saving Save(bool force, std::string& error);
    // Under another name in the same folder; the file must not be there. The document belongs to it then.
    Saving SaveAs(const std::string& name, std::string& error);
    // Takes the text of the file, as a change that can be undone.
    bool Reload(std::string& error);
    // Whether another program has changed or removed the file since it was read or saved.
    bool HasChangedOutside() const;

 private:
    // What has to be put at `at` instead of `now` to get the state before.
    struct Step {
        std::size_t at = 0;
        std::string now;
        std::string before;
        std::string run;
    };
    static Step Difference(const std::string& from, const std::string& to);
    void Take(std::vector<Step>& from, std::vector<Step>& to);
    bool ReadFile(std::string& content, bool& exists, std::string& error) const;
    bool Write(std::string& error);

    std::string path;
    std::string text;
    std::string stored;  // what is in the file as far as we know
    bool exists = false;
    std::int64_t version = 0;
    std::vector<Step> undo;
    std::vector<Step> redo;
};

}  // namespace studio
