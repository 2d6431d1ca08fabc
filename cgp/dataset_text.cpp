// The dataset writer. Values nest to any depth, so the walk keeps its own stack instead of
// recursing.
#include "cgp/dataset_text.h"

#include <sstream>
#include <vector>

#include "kvs/escape.h"

namespace cgp {
namespace {

class Writer {
 public:
  Writer(std::ostream& out, bool oneLine) : out_(out), oneLine_(oneLine) {}

  void run(const DataSet& value, int depth) {
    begin(*value.get(), depth);
    while (!stack_.empty()) step();
  }

 private:
  struct Frame {
    const data_set* node;
    int depth;
    std::size_t next = 0;                    // arrays: the next element
    DataSet::Entries::const_iterator entry;  // dictionaries: the next entry
    bool started = false;
  };

  void lineChange(int depth) {
    if (oneLine_) return;
    out_ << '\n';
    for (int i = 0; i < depth; ++i) out_ << "  ";
  }

  // Writes a value, or its opening when it has children (the frame then writes the rest).
  void begin(const data_set& node, int depth) {
    switch (node.kind) {
      case DataSet::Text:
        out_ << quoteText(node.text);
        break;
      case DataSet::Block:
        out_ << '[' << node.text << ']';
        break;
      case DataSet::Array:
        lineChange(depth);
        out_ << '(';
        stack_.push_back(Frame{&node, depth, 0, {}, false});
        break;
      case DataSet::Dictionary:
        lineChange(depth);
        out_ << '{';
        stack_.push_back(Frame{&node, depth, 0, node.entries.begin(), false});
        break;
      default:
        break;  // an empty value writes nothing
    }
  }

  void step() {
    // The frame may move when begin() pushes, so copy what is needed first.
    Frame& frame = stack_.back();
    const data_set& node = *frame.node;
    const int depth = frame.depth;
    if (node.kind == DataSet::Array) {
      if (frame.next == node.elements.size()) {
        lineChange(depth);
        out_ << ')';
        stack_.pop_back();
        return;
      }
      if (frame.next > 0) out_ << ',';
      const data_set& child = *node.elements[frame.next++].get();
      begin(child, depth + 1);
      return;
    }
    if (frame.started) out_ << ';';
    if (frame.entry == node.entries.end()) {
      lineChange(depth);
      out_ << '}';
      stack_.pop_back();
      return;
    }
    frame.started = true;
    const auto& [key, value] = *frame.entry++;
    lineChange(depth + 1);
    out_ << quoteText(key) << " = ";
    begin(*value.get(), depth + 1);
  }

  std::ostream& out_;
  bool oneLine_;
  std::vector<Frame> stack_;
};

}  // namespace

bool isAtomChar(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.';
}

std::string quoteText(std::string_view text) {
  std::string escaped = kvs::escapeString(text);
  bool bare = !escaped.empty();
  for (unsigned char c : escaped) {
    if (!isAtomChar(c)) {
      bare = false;
      break;
    }
  }
  if (bare) return escaped;
  return '"' + escaped + '"';
}

void writeDataSet(std::ostream& out, const DataSet& value, int depth, bool oneLine) {
  Writer(out, oneLine).run(value, depth);
}

std::string writeDataSet(const DataSet& value, bool oneLine) {
  std::ostringstream out;
  writeDataSet(out, value, 0, oneLine);
  return out.str();
}

}  // namespace cgp
