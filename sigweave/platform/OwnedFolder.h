#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

// A part of the seam that the library does not need: it is built into the programs that do.
namespace tc {

// A folder that this process made itself, and that goes with this object. It is taken away as what it is, not
// by its name: only the very folder that was made, found from its parent, without following links or entering
// what is mounted in it. Whatever other code does to names, nothing else is touched. Only the process that
// made it takes it away, not one forked from it. One thread.
class OwnedFolder {
 public:
    // With a random name after `prefix`, for the owner alone, in the folder for temporary files or in
    // `parent`. Null when it cannot be made; `failed` says why.
    static std::unique_ptr<OwnedFolder> MakeTemporary(const std::string& prefix, std::error_code& failed,
                                                      const std::filesystem::path& parent = {});
    // Under this path, where nothing may be yet. Missing folders above it are made too, and stay.
    static std::unique_ptr<OwnedFolder> Make(const std::filesystem::path& path, std::error_code& failed);
    // Takes the folder away with all that is in it.
    ~OwnedFolder();
    OwnedFolder(const OwnedFolder&) = delete;
    OwnedFolder& operator=(const OwnedFolder&) = delete;

    // Absolute.
    const std::filesystem::path& Path() const { return path; }
    // False when something is left: another folder has its name now, something is mounted in it, its folders
    // lie deeper than 200, or the system refuses. Once; afterwards the object takes nothing away.
    bool Remove();
    // Takes away these files, named without folders, and then the folder if nothing else is in it. As Remove.
    bool RemoveFiles(const std::vector<std::string>& names);
    // Leaves it where it is.
    void Keep();

 private:
    struct Identity {
        std::uint64_t device;
        std::uint64_t inode;
    };

    OwnedFolder(std::filesystem::path madePath, int parentDescriptor, std::string madeName, Identity made);
    static std::unique_ptr<OwnedFolder> MakeAt(int parent, const std::filesystem::path& path,
                                               bool forOwnerAlone, std::error_code& failed);
    int Open() const;
    bool End(int folder, bool isEmpty);

    std::filesystem::path path;
    int parent;  // -1: it takes nothing away any more
    std::string name;
    Identity identity;
    int maker;
};

}  // namespace tc
