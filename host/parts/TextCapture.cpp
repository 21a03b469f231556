#include "host/parts/TextCapture.h"

#include <utility>

namespace host {
namespace {

thread_local std::vector<PartText>* current = nullptr;

}  // namespace

TextCapture::TextCapture(std::vector<PartText>* list) : before(std::exchange(current, list)) {}

TextCapture::~TextCapture() {
    current = before;
}

std::vector<PartText>* TextCapture::Current() {
    return current;
}

}  // namespace host
