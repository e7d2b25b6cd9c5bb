#include "LineEditor.h"

namespace ptzctl {

// A Windows console edits and remembers lines itself.
std::unique_ptr<LineEditor> LineEditor::Make(Settings, Interruption&) { return nullptr; }

}  // namespace ptzctl
