// The shared library exports its C interface and nothing else: the defined
// symbols of its dynamic symbol table are exactly the list below.
#include <elf.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

const std::set<std::string> kExported = {
    // entry points
    "tavo_hdr_pool_init", "tavo_hdr_pool_destroy", "tavo_hdr_set_stop_flag", "HDR_Function",
    "GetAlignImg",
    // worker pool and band jobs
    "pool_init", "pool_add_worker", "pool_destroy", "thread_routine", "pool", "g_args", "count",
    "arg", "p",
    // frame alignment
    "loadImg", "loadImg_process", "loadImg_parameter", "imageCrop", "image_resize",
    "wltDecompose", "wltDecompose_process", "wltDecompose_parameter", "GetExpShift",
    "imageAffine_xor_and", "imageAffine_xor_and_process", "imageAffine_xor_and_parameter",
    "imageAffine", "imageAffine_process", "imageAffine_parameter", "imageAffine_uv",
    "imageAffine_uv_process", "imageAffine_uv_parameter",
    // luma exposure fusion
    "pyramid_level", "pyramid_size", "weight_Initialize", "weight_Initialize_c", "pyrFuse",
    "pyramid_gaussian_down_sample_uint8", "pyramid_gaussian_down_sample_uint8_process",
    "pyramid_gaussian_down_sample_uint8_parameter", "pyramid_laplacian_down_sample",
    "pyramid_laplacian_down_sample_process", "pyramid_laplacian_down_sample_parameter",
    "pyramid_reconstruct_y", "pyramid_reconstruct_y_process", "pyramid_reconstruct_y_parameter",
    "fusion_pyramid", "fusion_pyramid_process", "fusion_pyramid_parameter",
    // chroma fusion and colour
    "fusionUV_plane", "fusionUV_plane_process", "fusionUV_plane_parameter", "fusionUV_semiplane",
    "fusionUV_semiplane_process", "fusionUV_semiplane_parameter", "fusionUV", "fusionUV_process",
    "fusionUV_parameter", "FusionOnLayer", "saturation", "saturation_process",
    "saturation_parameter", "memcpy_neon",
};

// Names of the defined, global or weak symbols in the .dynsym of a 64-bit ELF.
std::set<std::string> defined_dynamic_symbols(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  EXPECT_GT(bytes.size(), sizeof(Elf64_Ehdr)) << path;
  if (bytes.size() < sizeof(Elf64_Ehdr)) return {};
  const auto* ehdr = reinterpret_cast<const Elf64_Ehdr*>(bytes.data());
  EXPECT_EQ(ehdr->e_ident[EI_CLASS], ELFCLASS64);
  const auto* sections = reinterpret_cast<const Elf64_Shdr*>(bytes.data() + ehdr->e_shoff);
  std::set<std::string> names;
  for (int i = 0; i < ehdr->e_shnum; ++i) {
    if (sections[i].sh_type != SHT_DYNSYM) continue;
    const Elf64_Shdr& strtab = sections[sections[i].sh_link];
    const auto* syms = reinterpret_cast<const Elf64_Sym*>(bytes.data() + sections[i].sh_offset);
    const size_t n = sections[i].sh_size / sizeof(Elf64_Sym);
    for (size_t s = 1; s < n; ++s) {
      const int bind = ELF64_ST_BIND(syms[s].st_info);
      if (syms[s].st_shndx == SHN_UNDEF || (bind != STB_GLOBAL && bind != STB_WEAK)) continue;
      names.insert(bytes.data() + strtab.sh_offset + syms[s].st_name);
    }
  }
  return names;
}

TEST(ExportedSymbols, ExactlyTheCInterface) {
  const std::set<std::string> found = defined_dynamic_symbols(TAVO_HDR_LIBRARY_PATH);
  for (const std::string& name : kExported) EXPECT_TRUE(found.count(name)) << "missing: " << name;
  for (const std::string& name : found) EXPECT_TRUE(kExported.count(name)) << "unexpected: " << name;
}

}  // namespace
