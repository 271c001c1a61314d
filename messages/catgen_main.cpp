// qmx_catgen: turns a catalogue source into catalogue-compiler input.
//
//   qmx_catgen <source.msg> <output.src> [<reference.msg>]
//
// With a reference (the English source), every message of the source must
// exist there with the same severity and inserts.  Exit status
// CATGEN_EXIT_OK, or CATGEN_EXIT_FAILED with the problems on standard error
// (messages/msg_status.h).
#include <cstdio>
#include <fstream>
#include <sstream>

#include "messages/catgen.h"
#include "messages/msg_status.h"

namespace {

bool ReadFile(const char* path, std::string* out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  *out = s.str();
  return true;
}

bool Load(const char* path, std::map<unsigned, catMessage_t>* msgs) {
  std::string text;
  if (!ReadFile(path, &text)) {
    fprintf(stderr, "qmx_catgen: cannot read the catalogue source %s\n", path);
    return false;
  }
  std::vector<std::string> errors;
  if (!catParseSource(path, text, msgs, &errors)) {
    for (const std::string& e : errors) fprintf(stderr, "%s\n", e.c_str());
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    fprintf(stderr, "usage: qmx_catgen <source.msg> <output.src> [<reference.msg>]\n");
    return CATGEN_EXIT_FAILED;
  }
  std::map<unsigned, catMessage_t> msgs;
  if (!Load(argv[1], &msgs)) return CATGEN_EXIT_FAILED;
  if (argc == 4) {
    std::map<unsigned, catMessage_t> ref;
    if (!Load(argv[3], &ref)) return CATGEN_EXIT_FAILED;
    std::vector<std::string> errors;
    if (!catCheckAgainst(argv[1], msgs, ref, &errors)) {
      for (const std::string& e : errors) fprintf(stderr, "%s\n", e.c_str());
      return CATGEN_EXIT_FAILED;
    }
  }
  std::string out = catWriteCompilerInput(argv[1], msgs);
  std::ofstream o(argv[2], std::ios::binary | std::ios::trunc);
  if (!o || !(o << out) || !o.flush()) {
    fprintf(stderr, "qmx_catgen: cannot write %s\n", argv[2]);
    return CATGEN_EXIT_FAILED;
  }
  return CATGEN_EXIT_OK;
}
