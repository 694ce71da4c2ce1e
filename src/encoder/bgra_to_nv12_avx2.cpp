// The colour conversion with AVX2: 32 columns of two rows a step.
//
// Packing and horizontal sums work within each half of a register, so both results come out with
// their groups of four bytes in the order 0, 2, 4, 6, 1, 3, 5, 7, which one permutation undoes.

#include <immintrin.h>

#include "encoder/bgra_to_nv12_rows.h"

namespace Veldrift {
namespace {

constexpr int kColumns = 32;

__m256i Load(const uint8_t* row, int pixel) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + pixel * 4));
}

void StoreInOrder(uint8_t* to, __m256i bytes) {
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_permutevar8x32_epi32(bytes, order));
}

// Weighted sums of 16 pixels, biased so that the high byte is luma.
__m256i LumaWords(__m256i a, __m256i b) {
  const __m256i weights = _mm256_set1_epi32(bt709::kYR << 16 | bt709::kYG << 8 | bt709::kYB);
  const __m256i flip = _mm256_set1_epi8(-128);
  const __m256i sumsA = _mm256_maddubs_epi16(weights, _mm256_xor_si256(a, flip));
  const __m256i sumsB = _mm256_maddubs_epi16(weights, _mm256_xor_si256(b, flip));
  return _mm256_srli_epi16(
      _mm256_add_epi16(_mm256_hadd_epi16(sumsA, sumsB), _mm256_set1_epi16(kLumaBias)), 8);
}

void StoreLuma(const __m256i (&pixels)[4], uint8_t* luma) {
  StoreInOrder(
      luma, _mm256_packus_epi16(LumaWords(pixels[0], pixels[1]), LumaWords(pixels[2], pixels[3])));
}

// Each channel's sum over two neighbours, for 4 pairs of pixels.
__m256i PairSums(__m256i pixels) {
  const __m256i sideBySide = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
  return _mm256_maddubs_epi16(_mm256_shuffle_epi8(pixels, sideBySide), _mm256_set1_epi8(1));
}

__m256i BlockMeans(__m256i top, __m256i bottom) {
  return _mm256_srli_epi16(_mm256_add_epi16(PairSums(top), PairSums(bottom)), 2);
}

// The three weights of a chroma component, as bytes for B, G, R and the unused A of every pixel.
__m256i Weights(int b, int g, int r) {
  return _mm256_set1_epi32((r & 0xFF) << 16 | (g & 0xFF) << 8 | (b & 0xFF));
}

// A word for each of 16 blocks.
__m256i ChromaWords(__m256i meansA, __m256i meansB, __m256i weights) {
  const __m256i sums = _mm256_hadd_epi16(_mm256_maddubs_epi16(meansA, weights),
                                         _mm256_maddubs_epi16(meansB, weights));
  return _mm256_add_epi16(
      _mm256_srai_epi16(_mm256_add_epi16(sums, _mm256_set1_epi16(bt709::kRound)), 8),
      _mm256_set1_epi16(bt709::kCOff));
}

void StoreChroma(const __m256i (&top)[4], const __m256i (&bottom)[4], uint8_t* chroma) {
  const __m256i meansA =
      _mm256_packus_epi16(BlockMeans(top[0], bottom[0]), BlockMeans(top[1], bottom[1]));
  const __m256i meansB =
      _mm256_packus_epi16(BlockMeans(top[2], bottom[2]), BlockMeans(top[3], bottom[3]));
  const __m256i cb = ChromaWords(meansA, meansB, Weights(bt709::kCbB, bt709::kCbG, bt709::kCbR));
  const __m256i cr = ChromaWords(meansA, meansB, Weights(bt709::kCrB, bt709::kCrG, bt709::kCrR));
  StoreInOrder(chroma, _mm256_or_si256(cb, _mm256_slli_epi16(cr, 8)));
}

}  // namespace

int ConvertRowPairAvx2(const Nv12RowPair& rows, int width) {
  int x = 0;
  for (; x + kColumns <= width; x += kColumns) {
    const __m256i top[4] = {Load(rows.top, x), Load(rows.top, x + 8), Load(rows.top, x + 16),
                            Load(rows.top, x + 24)};
    const __m256i bottom[4] = {Load(rows.bottom, x), Load(rows.bottom, x + 8),
                               Load(rows.bottom, x + 16), Load(rows.bottom, x + 24)};
    StoreLuma(top, rows.lumaTop + x);
    StoreLuma(bottom, rows.lumaBottom + x);
    StoreChroma(top, bottom, rows.chroma + x);
  }
  return x;
}

}  // namespace Veldrift
