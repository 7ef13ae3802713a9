/* Where the module is that belongs to a program or library of this tree. */
#ifndef TAVRIK_BASE_MODULE_PATH_H
#define TAVRIK_BASE_MODULE_PATH_H

#include <filesystem>

namespace tavrik::base {

/** tavrik2.hbx in the folder of the running program, or of the shared library that this code is part of: the layout of
 * build trees and of Windows. Else where an installation puts it in relation to its programs and libraries, if it is
 * there. The path is absolute; where no module is found, it is that in the first folder. */
std::filesystem::path DefaultModulePath();

/** The folder of the program or shared library that this code is part of, absolute. */
std::filesystem::path BinaryFolder();

} // namespace tavrik::base

#endif
