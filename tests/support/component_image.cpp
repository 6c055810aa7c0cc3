#include "tests/support/component_image.h"

#include "tests/support/command.h"
#include "tests/support/requirements.h"

#include <filesystem>

namespace fs = std::filesystem;

bool can_make_images(std::string& missing)
{
  missing = missing_tools({"buildah", "mmdebstrap", "mksquashfs"});
  return missing.empty();
}

Component_Image::Component_Image(const std::string& options)
{
  const std::string libraries = dir_ / "files/usr/lib/x86_64-linux-gnu";
  fs::create_directories(libraries);
  fs::copy(TESTS_BUILT_EXAMPLES_DIR "/libecho.so", libraries);
  dir_.write("files/etc/starter/component.d/echo.conf",
             "dynamic Echo Service_Object * echo:_make_Echo() \"-p 7007\"\n");
  (void)output_of("TMPDIR=" + dir_.path() + " " TESTS_SOURCE_DIR "/scripts/image -d " + packages_.build_dir() + " -o " +
                  file() + ' ' + options + " echo " + dir_ / "files");
}
