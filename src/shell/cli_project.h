#pragma once
#include <cstdio>
#include <string>
#include <vector>

#include "foundation/process_interface.h"

class TDProject;

// tandrel-cli new PROJECT.tdpj [--rate N] [--add FILE[@SECONDS][:TRACK]]...
// A project of twelve tracks (more when a file asks for a later one) with the
// files taken in as clips. `args` starts with "new". Exit codes as TDCliMain's.
int TDCliNewProject(std::vector<std::string> const& args, std::FILE* err, LProcessInterface& progress);

// tandrel-cli info PROJECT.tdpj: tracks, clips, length, rate, and the audio files
// the project names that its data folder lacks.
int TDCliProjectInfo(std::string const& path, std::FILE* out, std::FILE* err);

// Loads a project for reading only: nothing of its data folder is deleted when
// the project goes. False, with the reason on `err`, when it cannot be read.
bool TDCliLoadProject(std::string const& path, TDProject& project, std::FILE* err);
