# shellcheck shell=bash
# Debian packages: what a command's sets in scripts/packages.txt name and this machine lacks is
# installed. A prepared machine costs one dpkg-query.

# packages_of SET...: one a line.
packages_of() {
  local line set package
  while read -r set line; do
    for package in $line; do
      [[ " $* " != *" $set "* ]] || echo "$package"
    done
  done < <(sed -e 's/#.*//' scripts/packages.txt) | sort -u
}

missing_packages() {
  local wanted installed
  wanted=$(packages_of "$@")
  # shellcheck disable=SC2016  # the braces are dpkg-query's own
  # dpkg-query fails when it knows one of them not at all; its output about the others still counts.
  installed=$(xargs dpkg-query -W -f '${Package} ${db:Status-Status}\n' <<<"$wanted" 2>/dev/null |
    sed -n 's/ installed$//p' | sort -u) || :
  comm -23 <(echo "$wanted") <(echo "$installed")
}

# ensure_packages SET...
ensure_packages() {
  local missing as_root=()
  missing=$(missing_packages "$@")
  [[ -z $missing ]] && return
  missing=${missing//$'\n'/ }
  if [[ $EUID -ne 0 ]]; then
    if ! sudo -n true 2>/dev/null && ! { [[ -t 0 ]] && command -v sudo >/dev/null; }; then
      die "these packages are missing and neither root nor sudo is at hand; ask for: apt-get install $missing"
    fi
    as_root=(sudo)
  fi
  say "installing: $missing"
  # shellcheck disable=SC2086  # a list of words
  "${as_root[@]}" scripts/install_quietly.sh $missing
}
