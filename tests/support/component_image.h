#ifndef TESTS_SUPPORT_COMPONENT_IMAGE_H
#define TESTS_SUPPORT_COMPONENT_IMAGE_H

#include "tests/support/debian_packages.h"
#include "tests/support/temp_dir.h"

#include <string>

/// Whether images can be made here. The names of what is missing are in `missing`.
bool can_make_images(std::string& missing);

/// An image of the echo service, which listens on port 7007, made of the packages of this build. A test fails where it
/// cannot be made.
class Component_Image
{
public:
  /// `options` go to the script that makes it.
  explicit Component_Image(const std::string& options = "");

  /// The file of the image.
  std::string file() const { return dir_ / "image"; }

private:
  const Debian_Packages packages_;
  const Temp_Dir dir_;
};

#endif // TESTS_SUPPORT_COMPONENT_IMAGE_H
