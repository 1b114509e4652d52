#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "foundation/process_interface.h"
#include "project/project.h"

// A project on disk is a chunk file (".tdpj") with all structure and no samples,
// and beside it the data folder (the file's name plus ".ProjectData") with the
// numbered audio files. The file names audio by number only, so the two travel
// together.
inline constexpr std::uint32_t TDProjectFileType = 4;
inline constexpr std::uint16_t TDProjectFileVersion = 21;
inline constexpr char TDRecoveryFileName[] = "Recover.tdpj-recover";

// Writes the project to `szPath`. The file is written as "tmp.tdpj" beside the
// target and renamed over it only when complete, so a failed or interrupted save
// never damages the previous file. Saving somewhere other than the project's own
// file (a Save As) first copies the whole data folder beside the new file.
struct TDSaveProject {
  TDProject* pProject = nullptr;
  std::string szPath;
  // Set by the job: the data folder the saved file goes with.
  std::string szDataFolder;
};

LProcessResult Process(LProcessInterface& pi, TDSaveProject& job);

// Reads a project file into `pProject`, which should be empty (closed). On a
// failure the project holds whatever was read and the caller discards it.
struct TDLoadProject {
  TDProject* pProject = nullptr;
  std::string szPath;
  // Set when an older file was read and must be written back in this version.
  bool bConverted = false;
  // Asks whether an older file may be converted; true to go on. Without it, no.
  std::function<bool(std::string const& question)> AskConvert;
};

LProcessResult Process(LProcessInterface& pi, TDLoadProject& job);

// The data folder of a project file: beside it for a ".tdpj", the folder that
// holds it for a recovery file.
std::string TDProjectDataFolderOf(std::string const& projectFile);
