#!/bin/bash
# Unpacks the ELF kernel from a compressed x86 boot image (bzImage).
# usage: extract-vmlinux.sh BZIMAGE OUT
set -uo pipefail
in=${1:?usage: extract-vmlinux.sh BZIMAGE OUT}
out=${2:?usage: extract-vmlinux.sh BZIMAGE OUT}

tmp=$(mktemp "$out.XXXXXX") || exit 1
trap 'rm -f "$tmp"' EXIT

is_elf()
{
    [[ $(head -c 4 "$1" | od -An -tx1 | tr -d ' \n') == 7f454c46 ]]
}

try()
{
    local magic=$1 tool=$2 offset
    for offset in $(LC_ALL=C grep -aboF "$(printf "$magic")" "$in" | cut -d: -f1); do
        # The payload is followed by other data: a decompressor's complaint
        # about trailing bytes is expected, an ELF header is what counts.
        tail -c +$((offset + 1)) "$in" | $tool >"$tmp" 2>/dev/null
        if [[ -s $tmp ]] && is_elf "$tmp"; then
            return 0
        fi
    done
    return 1
}

if try '\3757zXZ' 'xz -dc' || try '\037\213\010' 'gzip -dc' ||
    try '\050\265\057\375' 'zstd -dc' || try '\002\041\114\030' 'lz4 -dc'; then
    chmod 0644 "$tmp"
    mv -f "$tmp" "$out"
    exit 0
fi
echo "extract-vmlinux: no ELF kernel found in $in" >&2
exit 1
