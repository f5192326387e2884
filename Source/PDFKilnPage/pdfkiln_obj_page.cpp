// Page-tree leaves: reading a page's closure.
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

// The page-tree classes collect a page's closure; until they do, a page
// contributes only its own object.
void CSourFile::readPageClosure(const SObj& page) { fileObjects.insert(page); }

}  // namespace PDF_KILN
