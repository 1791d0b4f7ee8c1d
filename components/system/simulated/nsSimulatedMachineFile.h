// Machines from JSON files. docs/machine-file.md tells what may stand in one.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "nsSimulatedMachine.h"

/// Reads a machine from a file. Any bytes in the file are safe.
///
/// Whatever is wrong is an error, so that no fact is silently missing: an unknown key, a value of
/// the wrong type or out of range, a letter twice. aMessage then tells "FILE:LINE: reason", ready
/// to be shown; it is not touched on success, as aMachine isn't on failure.
///
/// NS_ERROR_FILE_NOT_FOUND when the file can't be read, NS_ERROR_FILE_CORRUPTED when it describes
/// no machine.
nsresult NS_ReadMachineFile(const std::string& aPath, std::unique_ptr<nsSimulatedMachine>* aMachine,
                            std::string* aMessage);

/// The same for a text. aName stands for the file's name in messages; relative paths are taken from
/// aDirectory.
nsresult NS_ReadMachineText(std::string_view aText, const std::string& aName,
                            const std::string& aDirectory,
                            std::unique_ptr<nsSimulatedMachine>* aMachine, std::string* aMessage);
