// Where an object's bytes begin and end in the source file. The file states
// only beginnings, so an object ends at the next known position.
#ifndef PDFKILN_COBJECTPOSITION_H
#define PDFKILN_COBJECTPOSITION_H

#include <cstdint>
#include <vector>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

class CObjectPosition {
public:
    static constexpr int64_t unknownPosition = INT64_MAX;

    explicit CObjectPosition(CSourFile* source);
    int64_t getBeginPosition(const SObj& key) const;
    int64_t getEndPosition(const SObj& key) const;
    int64_t getLength(const SObj& key) const;
    int getObjType(const SObj& key) const;

private:
    const ObjTable* table;
    const std::vector<unsigned long>* offsets;
};

}  // namespace PDF_KILN

#endif
