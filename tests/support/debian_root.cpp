#include "tests/support/debian_root.h"

#include "tests/support/command.h"
#include "tests/support/temp_dir.h"

#include <filesystem>
#include <fstream>
#include <utility>

namespace fs = std::filesystem;

// Nothing of the root has to survive a power failure, so dpkg does not wait for the disk.
Debian_Root::Debian_Root(std::string path, const std::string& include) : path_(std::move(path))
{
  (void)output_of("apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)'"
                  " 'Created-By: Packages' 'Origin: Debian' | sort -u >" +
                  path_ + ".sources && mmdebstrap --quiet --variant=apt --mode=root --skip=cleanup/apt" +
                  " --dpkgopt=force-unsafe-io " + (include.empty() ? "" : "--include=" + include) + " '' " + path_ +
                  " - <" + path_ + ".sources");
}

std::string Debian_Root::run(const std::string& command) const
{
  std::ofstream(path_ + "/command") << command << '\n';
  const std::string output = output_of(
      "unshare --mount --pid --fork --kill-child sh -c 'mount -t proc proc " + path_ + "/proc && exec chroot " + path_ +
      " env -i PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin HOME=/root DEBIAN_FRONTEND=noninteractive"
      " bash -eu /command'");
  fs::remove(path_ + "/command");
  return output;
}

void Debian_Root::install(const std::vector<std::string>& packages) const
{
  std::string command = "apt-get -q -y install --no-install-recommends";
  for (const std::string& package : packages) {
    const std::string name = fs::path(package).filename();
    fs::copy_file(package, path_ + "/tmp/" + name);
    command += " /tmp/" + name;
  }
  (void)run(command);
  (void)run("rm /tmp/*.deb");
}

std::vector<std::string> Debian_Root::files() const
{
  return lines_of(output_of("cd " + path_ +
                            " && find . -path ./proc -prune -o -path ./var/lib/dpkg -prune -o"
                            " -path ./var/lib/apt -prune -o -path ./var/cache -prune -o"
                            " -path ./var/log -prune -o -print | LC_ALL=C sort"));
}
