// The standard Huffman tables B.1 to B.15 of ISO/IEC 14492, as
// (prefix length, range length, range low). Lower range, upper range and OOB
// lines come last; a table without a lower or upper range line keeps an unused
// slot of prefix length 0 there, so that the lower-range flag, which build()
// puts on a fixed place, never falls on an ordinary line.
#include "jbig2/huffman.h"

namespace jbig2 {

namespace {

const HuffmanLine linesA[] = {{1, 4, 0}, {2, 8, 16}, {3, 16, 272}, {0, 32, -1}, {3, 32, 65808}};
const HuffmanLine linesB[] = {{1, 0, 0},   {2, 0, 1},   {3, 0, 2},    {4, 3, 3},
                              {5, 6, 11},  {0, 32, -1}, {6, 32, 75},  {6, 0, 0}};
const HuffmanLine linesC[] = {{8, 8, -256}, {1, 0, 0},     {2, 0, 1},   {3, 0, 2}, {4, 3, 3},
                              {5, 6, 11},   {8, 32, -257}, {7, 32, 75}, {6, 0, 0}};
const HuffmanLine linesD[] = {{1, 0, 1}, {2, 0, 2}, {3, 0, 3}, {4, 3, 4}, {5, 6, 12}, {0, 32, -1}, {5, 32, 76}};
const HuffmanLine linesE[] = {{7, 8, -255}, {1, 0, 1},  {2, 0, 2},     {3, 0, 3},
                              {4, 3, 4},    {5, 6, 12}, {7, 32, -256}, {6, 32, 76}};
const HuffmanLine linesF[] = {{5, 10, -2048}, {4, 9, -1024}, {4, 8, -512},   {4, 7, -256},  {5, 6, -128},
                              {5, 5, -64},    {4, 5, -32},   {2, 7, 0},      {3, 7, 128},   {3, 8, 256},
                              {4, 9, 512},    {4, 10, 1024}, {6, 32, -2049}, {6, 32, 2048}};
const HuffmanLine linesG[] = {{4, 9, -1024}, {3, 8, -512}, {4, 7, -256},  {5, 6, -128},   {5, 5, -64},
                              {4, 5, -32},   {4, 5, 0},    {5, 5, 32},    {5, 6, 64},     {4, 7, 128},
                              {3, 8, 256},   {3, 9, 512},  {3, 10, 1024}, {5, 32, -1025}, {5, 32, 2048}};
const HuffmanLine linesH[] = {{8, 3, -15}, {9, 1, -7},  {8, 1, -5},   {9, 0, -3},   {7, 0, -2},  {4, 0, -1},
                              {2, 1, 0},   {5, 0, 2},   {6, 0, 3},    {3, 4, 4},    {6, 1, 20},  {4, 4, 22},
                              {4, 5, 38},  {5, 6, 70},  {5, 7, 134},  {6, 7, 262},  {7, 8, 390}, {6, 10, 646},
                              {9, 32, -16}, {9, 32, 1670}, {2, 0, 0}};
const HuffmanLine linesI[] = {{8, 4, -31}, {9, 2, -15},  {8, 2, -11},  {9, 1, -7},   {7, 1, -5},  {4, 1, -3},
                              {3, 1, -1},  {3, 1, 1},    {5, 1, 3},    {6, 1, 5},    {3, 5, 7},   {6, 2, 39},
                              {4, 5, 43},  {4, 6, 75},   {5, 7, 139},  {5, 8, 267},  {6, 8, 523}, {7, 9, 779},
                              {6, 11, 1291}, {9, 32, -32}, {9, 32, 3339}, {2, 0, 0}};
const HuffmanLine linesJ[] = {{7, 4, -21},  {8, 0, -5},   {7, 0, -4},    {5, 0, -3},    {2, 2, -2},  {5, 0, 2},
                              {6, 0, 3},    {7, 0, 4},    {8, 0, 5},     {2, 6, 6},     {5, 5, 70},  {6, 5, 102},
                              {6, 6, 134},  {6, 7, 198},  {6, 8, 326},   {6, 9, 582},   {6, 10, 1094},
                              {7, 11, 2118}, {8, 32, -22}, {8, 32, 4166}, {2, 0, 0}};
const HuffmanLine linesK[] = {{1, 0, 1},  {2, 1, 2},  {4, 0, 4},  {4, 1, 5},  {5, 1, 7},   {5, 2, 9},   {6, 2, 13},
                              {7, 2, 17}, {7, 3, 21}, {7, 4, 29}, {7, 5, 45}, {7, 6, 77}, {0, 32, -1}, {7, 32, 141}};
const HuffmanLine linesL[] = {{1, 0, 1},  {2, 0, 2},  {3, 1, 3},  {5, 0, 5},  {5, 1, 6},   {6, 1, 8},   {7, 0, 10},
                              {7, 1, 11}, {7, 2, 13}, {7, 3, 17}, {7, 4, 25}, {8, 5, 41}, {0, 32, -1}, {8, 32, 73}};
const HuffmanLine linesM[] = {{1, 0, 1},  {3, 0, 2},  {4, 0, 3},  {5, 0, 4},  {4, 1, 5},   {3, 3, 7},   {6, 1, 15},
                              {6, 2, 17}, {6, 3, 21}, {6, 4, 29}, {6, 5, 45}, {7, 6, 77}, {0, 32, -1}, {7, 32, 141}};
const HuffmanLine linesN[] = {{3, 0, -2}, {3, 0, -1}, {1, 0, 0}, {3, 0, 1}, {3, 0, 2}, {0, 32, -1}, {0, 32, -1}};
const HuffmanLine linesO[] = {{7, 4, -24}, {6, 2, -8}, {5, 1, -4}, {4, 0, -2}, {3, 0, -1},
                              {1, 0, 0},   {3, 0, 1},  {4, 0, 2},  {5, 1, 3},  {6, 2, 5},
                              {7, 4, 9},   {7, 32, -25}, {7, 32, 25}};

template <std::size_t N>
constexpr HuffmanParams params(int htoob, const HuffmanLine (&lines)[N]) {
    return HuffmanParams{htoob, static_cast<int>(N), lines};
}

}  // namespace

const HuffmanParams huffman_params_A = params(0, linesA);
const HuffmanParams huffman_params_B = params(1, linesB);
const HuffmanParams huffman_params_C = params(1, linesC);
const HuffmanParams huffman_params_D = params(0, linesD);
const HuffmanParams huffman_params_E = params(0, linesE);
const HuffmanParams huffman_params_F = params(0, linesF);
const HuffmanParams huffman_params_G = params(0, linesG);
const HuffmanParams huffman_params_H = params(1, linesH);
const HuffmanParams huffman_params_I = params(1, linesI);
const HuffmanParams huffman_params_J = params(1, linesJ);
const HuffmanParams huffman_params_K = params(0, linesK);
const HuffmanParams huffman_params_L = params(0, linesL);
const HuffmanParams huffman_params_M = params(0, linesM);
const HuffmanParams huffman_params_N = params(0, linesN);
const HuffmanParams huffman_params_O = params(0, linesO);

}  // namespace jbig2
