// tavrik-corpus: keeps the features of many files, and answers rules from them.

#include "base/program.h"
#include "base/system.h"
#include "tools/tavrik-corpus/command_line.h"
#include "tools/tavrik-corpus/commands.h"

int main(int argc, char **argv) {
    using namespace tavrik;
    return base::RunProgram("tavrik-corpus", corpus_tool::kFailed,
                            [&] { return corpus_tool::RunCommandLine(base::Arguments(argc, argv)); });
}
