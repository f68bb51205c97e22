// SPDX-License-Identifier: Apache-2.0
// The module's dynamic linking surface, read from the ELF file: what it exports, what it imports
// and the libraries it needs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <elf.h>
#include <link.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

struct DynamicSurface {
    std::set<std::string> defined;    // global or weak symbols the file defines
    std::set<std::string> undefined;  // symbols it takes from other objects
    std::set<std::string> needed;     // DT_NEEDED libraries
};

// Reads the dynamic symbol table and dynamic section of a shared object of this build's class.
DynamicSurface ReadDynamicSurface(const std::string &strPath) {
    std::ifstream file(strPath, std::ios::binary);
    std::vector<char> image((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    DynamicSurface surface;
    if (image.size() < sizeof(ElfW(Ehdr))) {
        ADD_FAILURE() << "cannot read " << strPath;
        return surface;
    }
    const auto *ehdr = reinterpret_cast<const ElfW(Ehdr) *>(image.data());
    const auto *shdrs = reinterpret_cast<const ElfW(Shdr) *>(image.data() + ehdr->e_shoff);
    for (int s = 0; s < ehdr->e_shnum; ++s) {
        const ElfW(Shdr) &section = shdrs[s];
        const char *strings = image.data() + shdrs[section.sh_link].sh_offset;
        if (section.sh_type == SHT_DYNSYM) {
            const auto *symbols =
                reinterpret_cast<const ElfW(Sym) *>(image.data() + section.sh_offset);
            for (std::size_t i = 1; i < section.sh_size / sizeof(ElfW(Sym)); ++i) {
                const ElfW(Sym) &symbol = symbols[i];
                int binding = symbol.st_info >> 4;  // ELFxx_ST_BIND
                if (binding != STB_GLOBAL && binding != STB_WEAK) {
                    continue;
                }
                std::string name = strings + symbol.st_name;
                (symbol.st_shndx == SHN_UNDEF ? surface.undefined : surface.defined).insert(name);
            }
        } else if (section.sh_type == SHT_DYNAMIC) {
            const auto *entries =
                reinterpret_cast<const ElfW(Dyn) *>(image.data() + section.sh_offset);
            for (std::size_t i = 0; i < section.sh_size / sizeof(ElfW(Dyn)); ++i) {
                if (entries[i].d_tag == DT_NEEDED) {
                    surface.needed.insert(strings + entries[i].d_un.d_val);
                }
            }
        }
    }
    return surface;
}

TEST(ModuleExports, ExactlyTheStageFunctionsAndNothingElse) {
    DynamicSurface surface = ReadDynamicSurface(ORBAPI_ITGT_PATH);
    EXPECT_EQ(surface.defined, (std::set<std::string>{
                                   "RunGetITGTCapability",
                                   "FormatGetITGTCapability",
                                   "RunGetITGTSysBackLanguage",
                                   "FormatGetITGTSysBackLanguage",
                                   "PreProcPutITGTSysBackLanguage",
                                   "ParsePutITGTSysBackLanguage",
                                   "RunPutITGTSysBackLanguage",
                                   "FormatPutITGTSysBackLanguage",
                                   "RunGetITGTFrameOSD",
                                   "FormatGetITGTFrameOSD",
                                   "PreProcPutITGTFrameOSD",
                                   "ParsePutITGTFrameOSD",
                                   "RunPutITGTFrameOSD",
                                   "FormatPutITGTFrameOSD",
                                   "RunGetITGTVideoVehicleDetector",
                                   "FormatGetITGTVideoVehicleDetector",
                                   "PreProcPutITGTVideoVehicleDetector",
                                   "ParsePutITGTVideoVehicleDetector",
                                   "RunPutITGTVideoVehicleDetector",
                                   "FormatPutITGTVideoVehicleDetector",
                                   "RunGetITGTOsdCapability",
                                   "FormatGetITGTOsdCapability",
                                   "RunPostITGTSecurityCodeVerify",
                                   "FormatPostITGTSecurityCodeVerify",
                               }));
}

TEST(ModuleExports, TakesTheHostServicesFromTheHostLibrariesDynamically) {
    DynamicSurface surface = ReadDynamicSurface(ORBAPI_ITGT_PATH);
    EXPECT_THAT(surface.needed,
                ::testing::IsSupersetOf({"libtalapicommon.so.1", "libtalapilog.so.1"}));
    // Host services are imports (C++ names, so matched by substring), never copies of host code.
    for (const char *pcService : {"GetCommon", "SetCommon", "RestSendSynUnixMsg",
                                  "GetURIQueryParamByKey", "FormatCommonStatus", "cJSON_Parse",
                                  "VW_WriteLog", "VW_WriteLanguageLog", "g_enDebugFlag"}) {
        bool bImported = false;
        for (const std::string &name : surface.undefined) {
            bImported = bImported || name.find(pcService) != std::string::npos;
        }
        EXPECT_TRUE(bImported) << pcService;
    }
}

}  // namespace
