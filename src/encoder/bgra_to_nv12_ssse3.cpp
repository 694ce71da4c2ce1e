// The colour conversion with SSSE3: 16 columns of two rows a step.

#include <tmmintrin.h>

#include "encoder/bgra_to_nv12_rows.h"

namespace Veldrift {
namespace {

constexpr int kColumns = 16;

__m128i Load(const uint8_t* row, int pixel) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + pixel * 4));
}

void Store(uint8_t* to, __m128i bytes) { _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes); }

// Weighted sums of 8 pixels, biased so that the high byte is luma.
__m128i LumaWords(__m128i a, __m128i b) {
  const __m128i weights = _mm_set1_epi32(bt709::kYR << 16 | bt709::kYG << 8 | bt709::kYB);
  const __m128i flip = _mm_set1_epi8(-128);
  const __m128i sumsA = _mm_maddubs_epi16(weights, _mm_xor_si128(a, flip));
  const __m128i sumsB = _mm_maddubs_epi16(weights, _mm_xor_si128(b, flip));
  return _mm_srli_epi16(_mm_add_epi16(_mm_hadd_epi16(sumsA, sumsB), _mm_set1_epi16(kLumaBias)), 8);
}

void StoreLuma(const __m128i (&pixels)[4], uint8_t* luma) {
  Store(luma, _mm_packus_epi16(LumaWords(pixels[0], pixels[1]), LumaWords(pixels[2], pixels[3])));
}

// Each channel's sum over two neighbours, for 2 pairs of pixels.
__m128i PairSums(__m128i pixels) {
  const __m128i sideBySide = _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
  return _mm_maddubs_epi16(_mm_shuffle_epi8(pixels, sideBySide), _mm_set1_epi8(1));
}

__m128i BlockMeans(__m128i top, __m128i bottom) {
  return _mm_srli_epi16(_mm_add_epi16(PairSums(top), PairSums(bottom)), 2);
}

// The three weights of a chroma component, as bytes for B, G, R and the unused A of every pixel.
__m128i Weights(int b, int g, int r) {
  return _mm_set1_epi32((r & 0xFF) << 16 | (g & 0xFF) << 8 | (b & 0xFF));
}

// A word for each of 8 blocks.
__m128i ChromaWords(__m128i meansA, __m128i meansB, __m128i weights) {
  const __m128i sums =
      _mm_hadd_epi16(_mm_maddubs_epi16(meansA, weights), _mm_maddubs_epi16(meansB, weights));
  return _mm_add_epi16(_mm_srai_epi16(_mm_add_epi16(sums, _mm_set1_epi16(bt709::kRound)), 8),
                       _mm_set1_epi16(bt709::kCOff));
}

void StoreChroma(const __m128i (&top)[4], const __m128i (&bottom)[4], uint8_t* chroma) {
  const __m128i meansA =
      _mm_packus_epi16(BlockMeans(top[0], bottom[0]), BlockMeans(top[1], bottom[1]));
  const __m128i meansB =
      _mm_packus_epi16(BlockMeans(top[2], bottom[2]), BlockMeans(top[3], bottom[3]));
  const __m128i cb = ChromaWords(meansA, meansB, Weights(bt709::kCbB, bt709::kCbG, bt709::kCbR));
  const __m128i cr = ChromaWords(meansA, meansB, Weights(bt709::kCrB, bt709::kCrG, bt709::kCrR));
  Store(chroma, _mm_or_si128(cb, _mm_slli_epi16(cr, 8)));
}

}  // namespace

int ConvertRowPairSsse3(const Nv12RowPair& rows, int width) {
  int x = 0;
  for (; x + kColumns <= width; x += kColumns) {
    const __m128i top[4] = {Load(rows.top, x), Load(rows.top, x + 4), Load(rows.top, x + 8),
                            Load(rows.top, x + 12)};
    const __m128i bottom[4] = {Load(rows.bottom, x), Load(rows.bottom, x + 4),
                               Load(rows.bottom, x + 8), Load(rows.bottom, x + 12)};
    StoreLuma(top, rows.lumaTop + x);
    StoreLuma(bottom, rows.lumaBottom + x);
    StoreChroma(top, bottom, rows.chroma + x);
  }
  return x;
}

}  // namespace Veldrift
