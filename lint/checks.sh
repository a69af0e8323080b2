#!/usr/bin/env bash
# The checks of ./dev lint, which reads this file. Each prints how to repair what it finds.

product_folders() {
    sed -n 's/^set(PRODUCT_FOLDERS \(.*\))/\1/p' CMakeLists.txt | grep . || fail "CMakeLists.txt names no PRODUCT_FOLDERS on one line"
}
sources() { git ls-files -co --exclude-standard '*.cpp' '*.h' '*.c'; }

check_format() {
    need $packages_lint
    step "Format"
    sources | xargs clang-format --dry-run -Werror 2>/dev/null ||
        fail "some files are not formatted; this command formats them:
    git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i"
}

# The product calls Windows only: it has no conditional compilation and no name of the test bed.
check_words() {
    step "Words"
    local product found
    product=$(product_folders)
    found=$(grep -nE '^ *# *(if|ifdef|ifndef|elif)\b|winhost|__linux__' -r $product || true)
    [ -z "$found" ] || fail "the product has no conditional compilation and does not name the test bed; these lines do:
$found"
}

# Folders of the product include downwards only.
check_layers() {
    step "Layers"
    "$python" lint/layers.py || fail "these includes cross the product's layers"
}

check_python() {
    step "Python"
    git ls-files -co --exclude-standard '*.py' | xargs "$python" -m flake8 --max-line-length 132 ||
        fail "flake8 rejects these lines; a line of Python has at most 132 characters"
}

check_shell() {
    step "Shell scripts"
    # Lists of packages and folders are split into words on purpose; apt-config sets variables by eval.
    shellcheck -x -e SC2086,SC2154 dev .ci/run cmake/*.sh || fail "shellcheck rejects these lines"
}

# .clang-tidy names the checks. The configuration for it is not built: only its compile_commands.json is read.
check_tidy() {
    step "clang-tidy"
    configure native
    nice "$python" lint/tidy.py build/native "$jobs" $(product_folders) || fail "clang-tidy rejects these lines"
}

# All but clang-tidy, which takes minutes.
check_quickly() {
    need $packages_native $packages_lint
    check_format
    check_words
    check_layers
    check_python
    check_shell
}

lint() {
    check_quickly
    check_tidy
}
