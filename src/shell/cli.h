#pragma once
#include <cstdio>
#include <string>
#include <vector>

class LProcessInterface;

// tandrel-cli's commands, kept apart from main() so they can be tested. `args`
// excludes the program name. `progress` reports long jobs and answers whether
// the user asked to stop (Ctrl-C). Returns the process exit code: 0 done,
// 1 stopped, 2 usage, 3 failed.
int TDCliMain(const std::vector<std::string>& args, std::FILE* out, std::FILE* err, LProcessInterface& progress);
