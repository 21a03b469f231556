#pragma once

#include <cstdint>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// An archive of settings, as the objects see it that store themselves in one: typed items, each with a number
// that is unique within its subsection and a label for people. The same calls store and load, so an object
// describes its items once:
//
//   bool Settings::Serialize(ArchiveParser& archive) {
//       return archive.Double(1, "gain", gain) & archive.String(2, "title", title);
//   }
//
// Every operation on an item answers false, and leaves the value as it was, when loading finds no item of
// that number and type, or when storing cannot write it. Items may be loaded in any order; those that nobody
// asks for are passed over. See tc::ArchiveTree for the archive itself. Used on one thread. The order of the
// virtual operations is part of the binary interface.
class TC_API ArchiveParser {
 public:
    virtual ~ArchiveParser() = default;
    virtual bool IsStoring() const = 0;
    virtual bool Integer(int number, const char* label, std::int64_t& value) = 0;
    // Any bytes; a text in the locale's character set is what other programs can read.
    virtual bool String(int number, const char* label, TCString& value) = 0;

    // Every bit of the number, those of a NaN included.
    virtual bool Double(int number, const char* label, double& value);
    virtual bool Binary(int number, const char* label, TCString& bytes);
    // A well-formed fragment of XML, which an XML archive holds as markup, not as text.
    virtual bool StringUnquotedXML(int number, const char* label, TCString& xml);
    // The items up to the matching EndSubsection belong to it. False when there is none to load: then
    // EndSubsection must not be called.
    virtual bool BeginSubsection(int number, const char* label);
    virtual void EndSubsection();
};
