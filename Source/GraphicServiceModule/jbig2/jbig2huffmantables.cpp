// The standard Huffman tables B.1 to B.15 of ISO/IEC 14492 for JBIG2Dec, as
// lines (value, prefix length, range length, prefix), transcribed from
// shared/reference/jbig2-tables.md. The prefixes are assigned by buildTable
// on first use.
#include <mutex>

#include "jbig2/jbig2huffmandecoder.h"

namespace {

// Table B.1 (A), HTOOB 0.
JBIG2HuffmanTable jHuffTableA[] = {
    {0, 1, 4, 0},
    {16, 2, 8, 0},
    {272, 3, 16, 0},
    {65808, 3, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.2 (B), HTOOB 1.
JBIG2HuffmanTable jHuffTableB[] = {
    {0, 1, 0, 0},
    {1, 2, 0, 0},
    {2, 3, 0, 0},
    {3, 4, 3, 0},
    {11, 5, 6, 0},
    {75, 6, 32, 0},
    {0, 6, jbig2HuffmanOOB, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.3 (C), HTOOB 1.
JBIG2HuffmanTable jHuffTableC[] = {
    {-256, 8, 8, 0},
    {0, 1, 0, 0},
    {1, 2, 0, 0},
    {2, 3, 0, 0},
    {3, 4, 3, 0},
    {11, 5, 6, 0},
    {-257, 8, jbig2HuffmanLOW, 0},
    {75, 7, 32, 0},
    {0, 6, jbig2HuffmanOOB, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.4 (D), HTOOB 0.
JBIG2HuffmanTable jHuffTableD[] = {
    {1, 1, 0, 0},
    {2, 2, 0, 0},
    {3, 3, 0, 0},
    {4, 4, 3, 0},
    {12, 5, 6, 0},
    {76, 5, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.5 (E), HTOOB 0.
JBIG2HuffmanTable jHuffTableE[] = {
    {-255, 7, 8, 0},
    {1, 1, 0, 0},
    {2, 2, 0, 0},
    {3, 3, 0, 0},
    {4, 4, 3, 0},
    {12, 5, 6, 0},
    {-256, 7, jbig2HuffmanLOW, 0},
    {76, 6, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.6 (F), HTOOB 0.
JBIG2HuffmanTable jHuffTableF[] = {
    {-2048, 5, 10, 0},
    {-1024, 4, 9, 0},
    {-512, 4, 8, 0},
    {-256, 4, 7, 0},
    {-128, 5, 6, 0},
    {-64, 5, 5, 0},
    {-32, 4, 5, 0},
    {0, 2, 7, 0},
    {128, 3, 7, 0},
    {256, 3, 8, 0},
    {512, 4, 9, 0},
    {1024, 4, 10, 0},
    {-2049, 6, jbig2HuffmanLOW, 0},
    {2048, 6, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.7 (G), HTOOB 0.
JBIG2HuffmanTable jHuffTableG[] = {
    {-1024, 4, 9, 0},
    {-512, 3, 8, 0},
    {-256, 4, 7, 0},
    {-128, 5, 6, 0},
    {-64, 5, 5, 0},
    {-32, 4, 5, 0},
    {0, 4, 5, 0},
    {32, 5, 5, 0},
    {64, 5, 6, 0},
    {128, 4, 7, 0},
    {256, 3, 8, 0},
    {512, 3, 9, 0},
    {1024, 3, 10, 0},
    {-1025, 5, jbig2HuffmanLOW, 0},
    {2048, 5, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.8 (H), HTOOB 1.
JBIG2HuffmanTable jHuffTableH[] = {
    {-15, 8, 3, 0},
    {-7, 9, 1, 0},
    {-5, 8, 1, 0},
    {-3, 9, 0, 0},
    {-2, 7, 0, 0},
    {-1, 4, 0, 0},
    {0, 2, 1, 0},
    {2, 5, 0, 0},
    {3, 6, 0, 0},
    {4, 3, 4, 0},
    {20, 6, 1, 0},
    {22, 4, 4, 0},
    {38, 4, 5, 0},
    {70, 5, 6, 0},
    {134, 5, 7, 0},
    {262, 6, 7, 0},
    {390, 7, 8, 0},
    {646, 6, 10, 0},
    {-16, 9, jbig2HuffmanLOW, 0},
    {1670, 9, 32, 0},
    {0, 2, jbig2HuffmanOOB, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.9 (I), HTOOB 1.
JBIG2HuffmanTable jHuffTableI[] = {
    {-31, 8, 4, 0},
    {-15, 9, 2, 0},
    {-11, 8, 2, 0},
    {-7, 9, 1, 0},
    {-5, 7, 1, 0},
    {-3, 4, 1, 0},
    {-1, 3, 1, 0},
    {1, 3, 1, 0},
    {3, 5, 1, 0},
    {5, 6, 1, 0},
    {7, 3, 5, 0},
    {39, 6, 2, 0},
    {43, 4, 5, 0},
    {75, 4, 6, 0},
    {139, 5, 7, 0},
    {267, 5, 8, 0},
    {523, 6, 8, 0},
    {779, 7, 9, 0},
    {1291, 6, 11, 0},
    {-32, 9, jbig2HuffmanLOW, 0},
    {3339, 9, 32, 0},
    {0, 2, jbig2HuffmanOOB, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.10 (J), HTOOB 1.
JBIG2HuffmanTable jHuffTableJ[] = {
    {-21, 7, 4, 0},
    {-5, 8, 0, 0},
    {-4, 7, 0, 0},
    {-3, 5, 0, 0},
    {-2, 2, 2, 0},
    {2, 5, 0, 0},
    {3, 6, 0, 0},
    {4, 7, 0, 0},
    {5, 8, 0, 0},
    {6, 2, 6, 0},
    {70, 5, 5, 0},
    {102, 6, 5, 0},
    {134, 6, 6, 0},
    {198, 6, 7, 0},
    {326, 6, 8, 0},
    {582, 6, 9, 0},
    {1094, 6, 10, 0},
    {2118, 7, 11, 0},
    {-22, 8, jbig2HuffmanLOW, 0},
    {4166, 8, 32, 0},
    {0, 2, jbig2HuffmanOOB, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.11 (K), HTOOB 0.
JBIG2HuffmanTable jHuffTableK[] = {
    {1, 1, 0, 0},
    {2, 2, 1, 0},
    {4, 4, 0, 0},
    {5, 4, 1, 0},
    {7, 5, 1, 0},
    {9, 5, 2, 0},
    {13, 6, 2, 0},
    {17, 7, 2, 0},
    {21, 7, 3, 0},
    {29, 7, 4, 0},
    {45, 7, 5, 0},
    {77, 7, 6, 0},
    {141, 7, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.12 (L), HTOOB 0.
JBIG2HuffmanTable jHuffTableL[] = {
    {1, 1, 0, 0},
    {2, 2, 0, 0},
    {3, 3, 1, 0},
    {5, 5, 0, 0},
    {6, 5, 1, 0},
    {8, 6, 1, 0},
    {10, 7, 0, 0},
    {11, 7, 1, 0},
    {13, 7, 2, 0},
    {17, 7, 3, 0},
    {25, 7, 4, 0},
    {41, 8, 5, 0},
    {73, 8, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.13 (M), HTOOB 0.
JBIG2HuffmanTable jHuffTableM[] = {
    {1, 1, 0, 0},
    {2, 3, 0, 0},
    {3, 4, 0, 0},
    {4, 5, 0, 0},
    {5, 4, 1, 0},
    {7, 3, 3, 0},
    {15, 6, 1, 0},
    {17, 6, 2, 0},
    {21, 6, 3, 0},
    {29, 6, 4, 0},
    {45, 6, 5, 0},
    {77, 7, 6, 0},
    {141, 7, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.14 (N), HTOOB 0.
JBIG2HuffmanTable jHuffTableN[] = {
    {-2, 3, 0, 0},
    {-1, 3, 0, 0},
    {0, 1, 0, 0},
    {1, 3, 0, 0},
    {2, 3, 0, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
// Table B.15 (O), HTOOB 0.
JBIG2HuffmanTable jHuffTableO[] = {
    {-24, 7, 4, 0},
    {-8, 6, 2, 0},
    {-4, 5, 1, 0},
    {-2, 4, 0, 0},
    {-1, 3, 0, 0},
    {0, 1, 0, 0},
    {1, 3, 0, 0},
    {2, 4, 0, 0},
    {3, 5, 1, 0},
    {5, 6, 2, 0},
    {9, 7, 4, 0},
    {-25, 7, jbig2HuffmanLOW, 0},
    {25, 7, 32, 0},
    {0, 0, jbig2HuffmanEOT, 0}};
template <std::size_t N>
uint32_t linesOf(const JBIG2HuffmanTable (&)[N]) {
    return static_cast<uint32_t>(N - 1);
}

void buildAll() {
    JBIG2HuffmanDecoder::buildTable(jHuffTableA, linesOf(jHuffTableA));
    JBIG2HuffmanDecoder::buildTable(jHuffTableB, linesOf(jHuffTableB));
    JBIG2HuffmanDecoder::buildTable(jHuffTableC, linesOf(jHuffTableC));
    JBIG2HuffmanDecoder::buildTable(jHuffTableD, linesOf(jHuffTableD));
    JBIG2HuffmanDecoder::buildTable(jHuffTableE, linesOf(jHuffTableE));
    JBIG2HuffmanDecoder::buildTable(jHuffTableF, linesOf(jHuffTableF));
    JBIG2HuffmanDecoder::buildTable(jHuffTableG, linesOf(jHuffTableG));
    JBIG2HuffmanDecoder::buildTable(jHuffTableH, linesOf(jHuffTableH));
    JBIG2HuffmanDecoder::buildTable(jHuffTableI, linesOf(jHuffTableI));
    JBIG2HuffmanDecoder::buildTable(jHuffTableJ, linesOf(jHuffTableJ));
    JBIG2HuffmanDecoder::buildTable(jHuffTableK, linesOf(jHuffTableK));
    JBIG2HuffmanDecoder::buildTable(jHuffTableL, linesOf(jHuffTableL));
    JBIG2HuffmanDecoder::buildTable(jHuffTableM, linesOf(jHuffTableM));
    JBIG2HuffmanDecoder::buildTable(jHuffTableN, linesOf(jHuffTableN));
    JBIG2HuffmanDecoder::buildTable(jHuffTableO, linesOf(jHuffTableO));
}

}  // namespace

const JBIG2HuffmanTable* jbig2StandardTable(char name) {
    static std::once_flag once;
    std::call_once(once, buildAll);
    switch (name) {
    case 'A': return jHuffTableA;
    case 'B': return jHuffTableB;
    case 'C': return jHuffTableC;
    case 'D': return jHuffTableD;
    case 'E': return jHuffTableE;
    case 'F': return jHuffTableF;
    case 'G': return jHuffTableG;
    case 'H': return jHuffTableH;
    case 'I': return jHuffTableI;
    case 'J': return jHuffTableJ;
    case 'K': return jHuffTableK;
    case 'L': return jHuffTableL;
    case 'M': return jHuffTableM;
    case 'N': return jHuffTableN;
    case 'O': return jHuffTableO;
    default: return nullptr;
    }
}
