# Sourced by the commands in the top folder: installs what is missing, and nothing else. Debian's
# names; the views are compiled against the modules that they import.
for_building=(cmake ninja-build g++ pkg-config qt6-base-dev libpipewire-0.3-dev)
for_the_panel=(qt6-declarative-dev libxcb1-dev qml6-module-qtqml qml6-module-qtqml-models
  qml6-module-qtqml-workerscript qml6-module-qtquick qml6-module-qtquick-layouts
  qml6-module-qtquick-templates qml6-module-qtquick-window)
for_a_session=(pipewire pipewire-bin pipewire-pulse libspa-0.2-modules wireplumber)

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
