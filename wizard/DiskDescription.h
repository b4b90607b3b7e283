#pragma once

#include "Disk.h"

#include <string>

namespace Kel
{
namespace Vidorama
{
namespace InstallerWizard
{

// How a question that destroys something names the disk it acts on: path,
// model and size, "/dev/vda Virtio Block Device, 4.0 GiB". The size is in
// binary units with one decimal (MiB below 1 GiB, TiB from 1 TiB on); an
// unknown model or size is left out.
std::string DescribeDisk(const ZarnLinuxTools::Disk& disk);

// A size in bytes as DescribeDisk writes it ("4.0 GiB"); empty when negative.
std::string DescribeSize(long long bytes);

} // namespace InstallerWizard
} // namespace Vidorama
} // namespace Kel
