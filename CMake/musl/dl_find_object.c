/* What glibc's dl_find_object is to the unwinder in Debian's libgcc_eh: it finds the loaded object
 * that an address belongs to, and that object's exception tables. musl has only the walk over all
 * of them. */
#define _GNU_SOURCE
#include <link.h>
#include <stddef.h>

struct dl_find_object {
    unsigned long long flags;
    void *map_start;
    void *map_end;
    void *link_map;
    void *eh_frame;
    unsigned long long reserved[7];
};

struct search {
    ElfW(Addr) address;
    struct dl_find_object *result;
};

static int look(struct dl_phdr_info *info, size_t size, void *data) {
    (void)size;
    const struct search *search = data;
    void *tables = NULL;
    int found = 0;
    for (const ElfW(Phdr) *part = info->dlpi_phdr; part != info->dlpi_phdr + info->dlpi_phnum;
         ++part) {
        const ElfW(Addr) begin = info->dlpi_addr + part->p_vaddr;
        if (part->p_type == PT_GNU_EH_FRAME)
            tables = (void *)begin;
        if (part->p_type == PT_LOAD && search->address - begin < part->p_memsz) {
            search->result->map_start = (void *)begin;
            search->result->map_end = (void *)(begin + part->p_memsz);
            found = 1;
        }
    }
    if (!found || !tables)
        return 0;
    search->result->eh_frame = tables;
    return 1;
}

int _dl_find_object(void *address, struct dl_find_object *result) {
    struct search search = {(ElfW(Addr))address, result};
    return dl_iterate_phdr(look, &search) ? 0 : -1;
}
