// Helpers for the tests of the metrofit tool: scratch files and a strict JSON syntax check.
#ifndef METROFIT_TESTS_TOOLS_TOOLS_TEST_UTIL_H
#define METROFIT_TESTS_TOOLS_TOOLS_TEST_UTIL_H

#include <unistd.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace metrofit_tools_test {

// A file in the temporary directory with the given content, removed on destruction.
class TempFile {
 public:
  explicit TempFile(const std::string& content) {
    static int counter = 0;
    path_ = (std::filesystem::temp_directory_path() /
             ("metrofit_tools_test_" + std::to_string(::getpid()) + "_" +
              std::to_string(counter++) + ".txt"))
                .string();
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~TempFile() {
    std::error_code ec;
    std::filesystem::remove(path_, ec);
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Recursive-descent check of JSON text (RFC 8259): true when `text` is exactly one value.
class JsonSyntax {
 public:
  static bool Valid(std::string_view text) {
    JsonSyntax p(text);
    return p.Value() && (p.SkipBlanks(), p.pos_ == p.text_.size());
  }

 private:
  explicit JsonSyntax(std::string_view text) : text_(text) {}

  void SkipBlanks() {
    while (pos_ < text_.size() && std::strchr(" \t\r\n", text_[pos_]) != nullptr) ++pos_;
  }
  bool Eat(char c) {
    SkipBlanks();
    if (pos_ < text_.size() && text_[pos_] == c) {
      ++pos_;
      return true;
    }
    return false;
  }
  bool Literal(std::string_view word) {
    if (text_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }
  bool Digits() {
    const std::size_t start = pos_;
    while (pos_ < text_.size() && std::isdigit(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    return pos_ > start;
  }
  bool Number() {
    if (pos_ < text_.size() && text_[pos_] == '-') ++pos_;
    if (pos_ < text_.size() && text_[pos_] == '0') {
      ++pos_;
    } else if (!Digits()) {
      return false;
    }
    if (pos_ < text_.size() && text_[pos_] == '.' && (++pos_, !Digits())) return false;
    if (pos_ < text_.size() && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
      ++pos_;
      if (pos_ < text_.size() && (text_[pos_] == '+' || text_[pos_] == '-')) ++pos_;
      if (!Digits()) return false;
    }
    return true;
  }
  bool String() {
    if (!Eat('"')) return false;
    while (pos_ < text_.size()) {
      const unsigned char c = static_cast<unsigned char>(text_[pos_++]);
      if (c == '"') return true;
      if (c < 0x20) return false;
      if (c == '\\') {
        if (pos_ >= text_.size()) return false;
        const char e = text_[pos_++];
        if (e == 'u') {
          for (int k = 0; k < 4; ++k) {
            if (pos_ >= text_.size() || !std::isxdigit(static_cast<unsigned char>(text_[pos_++])))
              return false;
          }
        } else if (std::strchr("\"\\/bfnrt", e) == nullptr) {
          return false;
        }
      }
    }
    return false;
  }
  template <class Element>
  bool Sequence(char close, Element element) {
    if (Eat(close)) return true;
    do {
      if (!element()) return false;
    } while (Eat(','));
    return Eat(close);
  }
  bool Value() {
    SkipBlanks();
    if (pos_ >= text_.size()) return false;
    switch (text_[pos_]) {
      case '{':
        ++pos_;
        return Sequence('}', [this] { return String() && Eat(':') && Value(); });
      case '[':
        ++pos_;
        return Sequence(']', [this] { return Value(); });
      case '"':
        return String();
      case 't':
        return Literal("true");
      case 'f':
        return Literal("false");
      case 'n':
        return Literal("null");
      default:
        return Number();
    }
  }

  std::string_view text_;
  std::size_t pos_ = 0;
};

}  // namespace metrofit_tools_test

#endif  // METROFIT_TESTS_TOOLS_TOOLS_TEST_UTIL_H
