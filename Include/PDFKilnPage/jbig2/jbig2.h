// Umbrella header of the jbig2 decoder.
#ifndef PDFKILN_JBIG2_JBIG2_H
#define PDFKILN_JBIG2_JBIG2_H

#include "arithmeticdecoder.h"
#include "codetablesegment.h"
#include "datareader.h"
#include "extensionsegment.h"
#include "genericregionsegment.h"
#include "halftoneregionsegment.h"
#include "huffman.h"
#include "imagedata.h"
#include "jbig2decoder.h"
#include "jbig2decoderimp.h"
#include "jbig2result.h"
#include "mmrdecoder.h"
#include "page.h"
#include "patterndictionarysegment.h"
#include "refinementregionsegment.h"
#include "segment.h"
#include "symboldictsegment.h"
#include "textregionsegment.h"

#endif
