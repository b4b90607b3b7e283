#!/bin/sh
# check-package-results.sh PACKAGE SIZE_OUTPUT EXTRACT_OUTPUT EXTRACT_DIR BenchMakePackage
# Compares what BenchPackage reported for a package of BenchMakePackage with what is
# known to be true, so that a fast wrong answer cannot pass as a result:
#   - "GetExtractedSize=N" in SIZE_OUTPUT: the sum of the entry sizes that GNU tar
#     lists (entries named "...zip" twice), as the 32-bit signed count the function
#     returns (a package of 4 GiB and more wraps);
#   - "ExtractFileFomTar=true" in EXTRACT_OUTPUT, and EXTRACT_DIR holding one file,
#     "Install.sh", with the bytes of "BenchMakePackage --print-installer".
# Prints one "check ...: PASS|FAIL (...)" line each; exit status 1 when one fails.
set -u
package=$1 size_output=$2 extract_output=$3 extract_dir=$4 make_package=$5
status=0

# The real size, as GetExtractedSize counts it, and the same wrapped to 32 bits.
listed=$(gzip -dc "$package" | tar -tvf - | awk '
    $3 > 0 { total += ($0 ~ /zip$/) ? 2 * $3 : $3 }
    END {
        wrapped = total % 4294967296
        if (wrapped >= 2147483648) wrapped -= 4294967296
        printf "%.0f %.0f\n", total, wrapped
    }')
real=${listed% *}
expected=${listed#* }
returned=$(sed -n 's/^GetExtractedSize=\(-\{0,1\}[0-9]*\)$/\1/p' "$size_output" | tail -n 1)
if [ -n "$real" ] && [ "$real" -gt 0 ] && [ "$returned" = "$expected" ]; then
    result=PASS
else
    result=FAIL
    status=1
fi
echo "check GetExtractedSize() = the real size: $result (returned ${returned:-nothing};" \
    "tar lists $real bytes, $expected as a 32-bit count)"

installer=$(mktemp "${TMPDIR:-/tmp}/bench-installer.XXXXXX") || exit 1
"$make_package" --print-installer >"$installer"
files=$(find "$extract_dir" -type f | wc -l)
if grep -qx 'ExtractFileFomTar=true' "$extract_output" && [ "$files" -eq 1 ] &&
    cmp -s "$installer" "$extract_dir/Install.sh"; then
    result=PASS
    detail="Install.sh, $(wc -c <"$installer") bytes, identical; nothing else"
else
    result=FAIL
    status=1
    detail="$(sed -n 's/^ExtractFileFomTar=//p' "$extract_output" | tail -n 1);"
    detail="returned ${detail:-nothing} $files files extracted"
    if [ -f "$extract_dir/Install.sh" ]; then
        detail="$detail, Install.sh $(wc -c <"$extract_dir/Install.sh") bytes"
        cmp -s "$installer" "$extract_dir/Install.sh" || detail="$detail, differs"
    else
        detail="$detail, no Install.sh"
    fi
    detail="$detail (the script has $(wc -c <"$installer") bytes)"
fi
rm -f "$installer"
echo "check ExtractFileFomTar(\"Install.sh\") = the script's bytes: $result ($detail)"
exit $status
