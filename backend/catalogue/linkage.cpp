#include "backend/catalogue/linkage.h"

#include <gelf.h>

#include <memory>

namespace {

using File = std::unique_ptr<Elf, decltype(&elf_end)>;

// One section, with the texts that it points at.
class Section
{
public:
    Section(Elf* elf, Elf_Scn* section) : m_elf(elf)
    {
        m_isValid = gelf_getshdr(section, &m_header) != nullptr;
        m_data = m_isValid ? elf_getdata(section, nullptr) : nullptr;
    }
    bool is(GElf_Word type) const { return m_isValid && m_data && m_header.sh_type == type; }
    Elf_Data* data() const { return m_data; }
    int entries() const
    {
        return m_header.sh_entsize ? static_cast<int>(m_header.sh_size / m_header.sh_entsize) : 0;
    }
    QByteArray text(size_t offset) const
    {
        const char* text = elf_strptr(m_elf, m_header.sh_link, offset);
        return text ? QByteArray(text) : QByteArray();
    }

private:
    Elf* m_elf;
    GElf_Shdr m_header = {};
    Elf_Data* m_data = nullptr;
    bool m_isValid = false;
};

void readDynamic(const Section& section, Linkage& linkage)
{
    for (int i = 0; i < section.entries(); ++i) {
        GElf_Dyn entry;
        if (!gelf_getdyn(section.data(), i, &entry))
            return;
        if (entry.d_tag == DT_NEEDED)
            linkage.libraries.insert(section.text(entry.d_un.d_val));
        if (entry.d_tag == DT_SONAME)
            linkage.soname = section.text(entry.d_un.d_val);
    }
}

void readWanted(const Section& section, Linkage& linkage)
{
    GElf_Verneed library;
    for (int at = 0; gelf_getverneed(section.data(), at, &library);) {
        Linkage::Symbols& wanted = linkage.wanted[section.text(library.vn_file)];
        GElf_Vernaux version;
        for (int aux = at + static_cast<int>(library.vn_aux);
             gelf_getvernaux(section.data(), aux, &version);) {
            // A weak one may be missing.
            if (!(version.vna_flags & VER_FLG_WEAK))
                wanted.insert(section.text(version.vna_name));
            if (version.vna_next == 0)
                break;
            aux += static_cast<int>(version.vna_next);
        }
        if (library.vn_next == 0)
            return;
        at += static_cast<int>(library.vn_next);
    }
}

void readVersions(const Section& section, Linkage& linkage)
{
    GElf_Verdef definition;
    for (int at = 0; gelf_getverdef(section.data(), at, &definition);) {
        GElf_Verdaux name;
        if (gelf_getverdaux(section.data(), at + static_cast<int>(definition.vd_aux), &name))
            linkage.versions.insert(section.text(name.vda_name));
        if (definition.vd_next == 0)
            return;
        at += static_cast<int>(definition.vd_next);
    }
}

// `versionOf`: the section that gives each symbol the number of its version; 1 and less: none.
void readSymbols(const Section& symbols, Elf_Data* versionOf, Linkage& linkage)
{
    for (int i = 1; i < symbols.entries(); ++i) {
        GElf_Sym symbol;
        if (!gelf_getsym(symbols.data(), i, &symbol))
            return;
        const int binding = GELF_ST_BIND(symbol.st_info);
        GElf_Versym version = VER_NDX_GLOBAL;
        if (versionOf)
            gelf_getversym(versionOf, i, &version);
        const bool hasVersion = (version & 0x7fff) > VER_NDX_GLOBAL;
        if (symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL)
            linkage.exports.insert(symbols.text(symbol.st_name));
        else if (symbol.st_shndx == SHN_UNDEF && binding == STB_GLOBAL && !hasVersion)
            linkage.imports.insert(symbols.text(symbol.st_name));
    }
}

} // namespace

Linkage Linkage::of(const QByteArray& bytes)
{
    Linkage linkage;
    elf_version(EV_CURRENT);
    // Read, never written: libelf's signature is older than const.
    const File file(
        elf_memory(const_cast<char*>(bytes.constData()), static_cast<size_t>(bytes.size())),
        &elf_end);
    if (!file || elf_kind(file.get()) != ELF_K_ELF)
        return linkage;
    linkage.m_isElf = true;
    Elf_Data* versionOf = nullptr;
    QList<Section> sections;
    Elf_Scn* next = nullptr;
    while ((next = elf_nextscn(file.get(), next)))
        sections.append(Section(file.get(), next));
    for (const Section& section : std::as_const(sections)) {
        if (section.is(SHT_DYNAMIC))
            readDynamic(section, linkage);
        if (section.is(SHT_GNU_verneed))
            readWanted(section, linkage);
        if (section.is(SHT_GNU_verdef))
            readVersions(section, linkage);
        if (section.is(SHT_GNU_versym))
            versionOf = section.data();
    }
    for (const Section& section : std::as_const(sections)) {
        if (section.is(SHT_DYNSYM))
            readSymbols(section, versionOf, linkage);
    }
    return linkage;
}
