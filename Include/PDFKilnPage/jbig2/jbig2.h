// Umbrella header of the jbig2 decoder (Parts 8.1 to 8.3).
#ifndef PDFKILN_JBIG2_JBIG2_H
#define PDFKILN_JBIG2_JBIG2_H

#include "arithmeticdecoder.h"
#include "codetablesegment.h"
#include "datareader.h"
#include "genericregionsegment.h"
#include "huffman.h"
#include "imagedata.h"
#include "jbig2decoder.h"
#include "jbig2decoderimp.h"
#include "jbig2result.h"
#include "mmrdecoder.h"
#include "page.h"
#include "refinementregionsegment.h"
#include "segment.h"
#include "unsupportedsegment.h"

#endif
