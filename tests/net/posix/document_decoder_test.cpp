// The decoder on docs/protocol.md's page, run as it stands there, on what the block code made.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>

#include "net/block_code.h"
#include "net/framing.h"
#include "platform/file.h"
#include "tests/support/document.h"
#include "tests/support/scratch.h"
#include "tools/platform/process.h"

namespace Veldrift {
namespace {

constexpr const char* kPython = "/usr/bin/python3";
// The code works byte by byte: these stand for all 1,440.
constexpr size_t kBytes = 8;

// Answers each line of the file: "row K I" with the row's factors, "recover K index:bytes ..." with
// the data blocks.
constexpr const char* kQuestions = R"PYTHON(
import sys
for line in open(sys.argv[1]):
    kind, k, *rest = line.split()
    k = int(k)
    if kind == "row":
        print(bytes(factor(k, int(rest[0]), j) for j in range(k)).hex())
    else:
        pairs = (pair.split(":") for pair in rest)
        blocks = {int(index): bytes.fromhex(data) for index, data in pairs}
        print(b"".join(recover(k, blocks)).hex())
)PYTHON";

std::string Hex(const std::byte* bytes, size_t count) {
  std::string hex;
  for (size_t i = 0; i < count; ++i) {
    constexpr const char* kDigits = "0123456789abcdef";
    hex += kDigits[std::to_integer<unsigned>(bytes[i]) >> 4];
    hex += kDigits[std::to_integer<unsigned>(bytes[i]) & 15];
  }
  return hex;
}

class DocumentDecoder : public testing::Test {
 protected:
  void Ask(const std::string& question, const std::string& wanted) {
    questions_ += question + "\n";
    wanted_ += wanted + "\n";
  }
  // Runs the page's program on all questions.
  void ExpectAnswers() {
    const auto program = folder_.Path() / "decoder.py", questions = folder_.Path() / "questions";
    std::ofstream(program) << PythonOfDocument() << kQuestions;
    std::ofstream(questions) << questions_;
    const ProcessOutput output{folder_.Path() / "answers", folder_.Path() / "errors"};
    const auto process = StartProcess(kPython, {PathText(program), PathText(questions)}, output);
    ASSERT_TRUE(process);
    EXPECT_EQ(process->Wait(), 0) << ReadWholeFile(output.errors).value_or("");
    std::istringstream wanted(wanted_), answers(ReadWholeFile(output.output).value_or(""));
    std::istringstream asked(questions_);
    for (std::string question, want, answer; std::getline(asked, question);) {
      std::getline(wanted, want);
      std::getline(answers, answer);
      ASSERT_EQ(answer, want) << question.substr(0, 20);
    }
  }

 private:
  ScratchFolder folder_;
  std::string questions_, wanted_;
};

TEST_F(DocumentDecoder, ItsFactorsAreTheBlockCodesForEveryFrame) {
  size_t frames = 0;
  for (size_t k = 1; ChooseParityCount(k) > 0; ++k, ++frames) {
    const size_t m = ChooseParityCount(k);
    std::vector<std::byte> data(k * kFragmentBytes), parity(m * kFragmentBytes);
    for (size_t j = 0; j < k; ++j) data[j * kFragmentBytes + j] = std::byte{1};
    ASSERT_TRUE(EncodeParity(data, m, parity.data()));
    for (size_t i = 0; i < m; ++i) {
      Ask("row " + std::to_string(k) + " " + std::to_string(i),
          Hex(parity.data() + i * kFragmentBytes, k));
    }
  }
  EXPECT_EQ(frames, 254U);
  ExpectAnswers();
}

TEST_F(DocumentDecoder, ItRecoversAsManyBlocksAsThereIsParity) {
  std::mt19937 random(4'711);
  for (const size_t k : {1, 2, 3, 10, 11, 25, 64, 100, 231, 254}) {
    const size_t m = ChooseParityCount(k);
    std::vector<std::byte> blocks((k + m) * kFragmentBytes);
    for (std::byte& byte : std::span(blocks).first(k * kFragmentBytes)) byte = std::byte(random());
    const auto data = std::span(blocks).first(k * kFragmentBytes);
    ASSERT_TRUE(EncodeParity(data, m, blocks.data() + data.size()));
    std::vector<size_t> here(k + m);
    std::iota(here.begin(), here.end(), 0);
    std::shuffle(here.begin(), here.end(), random);
    std::string question = "recover " + std::to_string(k), wanted;
    for (const size_t index : std::span(here).first(k)) {
      question += " " + std::to_string(index) + ":" + Hex(&blocks[index * kFragmentBytes], kBytes);
    }
    for (size_t j = 0; j < k; ++j) wanted += Hex(&blocks[j * kFragmentBytes], kBytes);
    Ask(question, wanted);
  }
  ExpectAnswers();
}

}  // namespace
}  // namespace Veldrift
