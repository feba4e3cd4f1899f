# Sourced by the commands in the top folder: installs what is missing, and nothing else. Debian's
# names; the views are compiled against the modules that they import.
for_building=(cmake ninja-build g++ pkg-config qt6-base-dev libpipewire-0.3-dev)
for_the_panel=(qt6-declarative-dev libxcb1-dev qml6-module-qtqml qml6-module-qtqml-models
  qml6-module-qtqml-workerscript qml6-module-qtquick qml6-module-qtquick-layouts
  qml6-module-qtquick-templates qml6-module-qtquick-window)
for_a_session=(pipewire pipewire-bin pipewire-pulse libspa-0.2-modules wireplumber)
on_macos=(cmake googletest google-benchmark librsvg ninja qt)

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

install_homebrew_packages() {
  if ! command -v brew >/dev/null; then
    echo "Homebrew is missing, which this builds with: https://brew.sh" >&2
    return 1
  fi
  local missing=() name
  for name in "${on_macos[@]}"; do
    if ! brew list --formula "$name" >/dev/null 2>&1; then
      missing+=("$name")
    fi
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    brew install --quiet "${missing[@]}"
  fi
}

# install_packages name...: Debian's names; on macOS it is always the same set of Homebrew's.
install_packages() {
  if [ "$(uname)" = Darwin ]; then
    install_homebrew_packages
  elif command -v dpkg-query >/dev/null && command -v apt-get >/dev/null; then
    install_debian_packages "$@"
  else
    echo "No apt-get here. Going on in the hope that these are installed, under whatever names" \
      "this system has for them: $*"
  fi
}
