# Sourced by the commands in the top folder: installs what is missing, and nothing else.

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

# install_debian_packages name...
install_debian_packages() {
  local missing=() name
  for name in "$@"; do
    if ! dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null | grep -qx installed; then
      missing+=("$name")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return
  fi
  echo "Installing: ${missing[*]}"
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq update
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends \
    "${missing[@]}" >/dev/null
}

# install_packages name...: Debian's names; on macOS the fixed set of Homebrew is installed instead.
install_packages() {
  if [ "$(uname)" = Darwin ]; then
    brew install --quiet cmake ninja pkg-config qt llvm googletest google-benchmark
  elif command -v dpkg-query >/dev/null && command -v apt-get >/dev/null; then
    install_debian_packages "$@"
  else
    echo "No apt-get here. Going on in the hope that these are installed, under whatever names" \
      "this system has for them: $*"
  fi
}
