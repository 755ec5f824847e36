#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# sample_configs_test.sh SOURCE PROGRAM   The web servers accept the sample configurations, and what they describe works:
# a password over TLS, the page, a list, a thumbnail, and nothing for those without a password; whether the program sends
# the files or the web server.
set -uo pipefail
source=$1 program=$2
work=$(mktemp -d)
chmod 755 "$work"
trap 'kill $(jobs -p) 2>/dev/null; wait; rm -rf "$work"' EXIT
failures=0

fail() {
  echo "FAILED: $1"
  failures=$((failures + 1))
}

# The sample with the paths of this test; the port is put in where 443 stands.
adapt() { # adapt FILE PORT VARIANT
  "$3" <"$source/packaging/web/$1" | sed -e '/^ *#/d' \
      -e "s#/run/tavithumb-web/socket#$work/socket#; s#/usr/share/tavithumb/page#$work/page#" \
      -e "s#/etc/ssl/certs/tavithumb.pem#$work/tls.pem#; s#/etc/ssl/private/tavithumb.key#$work/tls.key#" \
      -e "s#/etc/ssl/private/tavithumb.pem#$work/both.pem#; s#/etc/\(nginx\|lighttpd\)/tavithumb.htpasswd#$work/htpasswd#" \
      -e "s#/srv/photos#$work/photos#; s#/etc/tavithumb/web.conf#$work/web.conf#; s#/usr/sbin/tavithumb-web#$work/bin/tavithumb-web#; s#/run/fcgiwrap.socket#$work/fcgi#" \
      -e "s#listen 443#listen 127.0.0.1:$2#; /listen \[::\]/d; s#\"socket\"\] == \":443\"#\"socket\"] == \"127.0.0.1:$2\"#"
}

free_port() {
  local port
  for ((port = 10000 + RANDOM % 20000; ; port++)); do
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || { echo "$port"; return; }
  done
}

ask() { curl -sk -m 20 "$@"; }
expect() { # expect WHAT EXPECTED CURL-ARGUMENTS...
  local got
  got=$(ask "${@:3}")
  [ "$got" = "$2" ] || fail "$1: expected '$2', got '$got'"
}

check_site() { # check_site NAME PORT
  local site=https://127.0.0.1:$2/photos status=(-o "$work/body" -w '%{http_code} %{content_type}')
  local user=(-u 'eva:open sesame')
  for _ in {1..100}; do ask -o "$work/body" "$site/" && break; sleep 0.05; done
  expect "$1, page without a password" 401 -o "$work/body" -w '%{http_code}' "$site/"
  expect "$1, thumbnail without a password" 401 -o "$work/body" -w '%{http_code}' "$site/thumb/a%20b.png?size=small"
  expect "$1, page" '200 text/html' "${user[@]}" -o "$work/body" -w '%{http_code} %{content_type}' "$site/"
  cmp -s "$work/body" "$source/apps/web/page/index.html" || fail "$1: another page"
  ask "${user[@]}" -o "$work/body" -D "$work/headers" "$site/"
  grep -qi "^content-security-policy: default-src 'none'" "$work/headers" || fail "$1: no content security policy"
  expect "$1, page without its slash" '301' "${user[@]}" -o "$work/body" -w '%{http_code}' "${site}"
  ask "${user[@]}" "$site/list/" | grep -q '^{"path":"","folders":\[\],"files":\[{"name":"a b.png","url":"a%20b.png",' ||
    fail "$1: another list"
  expect "$1, thumbnail" '200 image/png' "${user[@]}" "${status[@]}" "$site/thumb/a%20b.png?size=small"
  ask "${user[@]}" -o "$work/body" -D "$work/headers" "$site/original/a%20b.png"
  cmp -s "$work/body" "$work/photos/a b.png" || fail "$1: another original"
  for header in 'cache-control: private, max-age=300, must-revalidate' 'x-content-type-options: nosniff'; do
    [ "$(grep -ci "^$header" "$work/headers")" -eq 1 ] || fail "$1: not one '$header'"
  done
  for module in "$source"/apps/web/page/*.js; do
    ask "${user[@]}" -o "$work/body" -D "$work/headers" "$site/${module##*/}"
    grep -qiE '^content-type: (text|application)/javascript' "$work/headers" || fail "$1: ${module##*/} is not a script"
    cmp -s "$work/body" "$module" || fail "$1: another ${module##*/}"
  done
  expect "$1, addresses for the web server itself" 404 "${user[@]}" -o "$work/body" -w '%{http_code}' \
    "$site/files/a%20b.png"
  expect "$1, protocol" 2 "${user[@]}" -o "$work/body" -w '%{http_version}' "$site/list/"
  expect "$1, encoded way out" 404 "${user[@]}" -o "$work/body" -w '%{http_code}' --path-as-is \
    "$site/original/..%2f..%2fetc%2fpasswd"
}

mkdir -p "$work/photos" "$work/temporary" "$work/bin"
# The servers' configurations take no path with a space.
ln -s "$program" "$work/bin/tavithumb-web"
ln -s "$source/apps/web/page" "$work/page"
/usr/bin/convert -size 400x300 gradient:red-blue "$work/photos/a b.png"
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -keyout "$work/tls.key" -out "$work/tls.pem" 2>/dev/null
cat "$work/tls.key" "$work/tls.pem" >"$work/both.pem"
echo "eva:$(openssl passwd -apr1 'open sesame')" >"$work/htpasswd"
start_program() { # start_program SENDFILE   "": without that line
  sed -e "s#/srv/photos#$work/photos#; s#^.tool-memory = .*#tool-memory = 0#" \
      -e "s#^.policy = .*#policy = \"$source/packaging/imagemagick\"#" \
      -e "${1:+s#^.sendfile = .*#sendfile = \"$1\"#}" "$source/packaging/web/web.conf" >"$work/web.conf"
  "$program" --config "$work/web.conf" --scgi "$work/socket" &
  until [ -S "$work/socket" ]; do sleep 0.05; kill -0 $! || exit 1; done
  service=$!
}
stop() { # stop PROCESS
  kill "$1"
  wait "$1" 2>/dev/null
}

# The samples as they stand, and what their comments say about CGI put in place of SCGI.
by_scgi() { cat; }
by_cgi() {
  sed -e '/^ *scgi_p/d; /^ *include scgi_params/d; /^ *scgi.server = (/,/^ *)) )$/d' \
      -e 's/"mod_scgi"/"mod_cgi"/; s/^\( *\)#   \(fastcgi_\|alias\|cgi\|setenv\)/\1\2/'
}

serve_nginx() { # serve_nginx PORT VARIANT
  {
    [ "$(id -u)" -ne 0 ] || echo "user root;"
    echo "daemon off; pid $work/nginx.pid; error_log $work/nginx.log; events {}"
    echo "http { access_log off; include /etc/nginx/mime.types;"
    for kind in client_body proxy fastcgi uwsgi scgi; do echo "${kind}_temp_path $work/temporary/$kind;"; done
    adapt nginx.conf "$1" "$2" | sed 's#include scgi_params#include /etc/nginx/scgi_params#'
    echo "}"
  } >"$work/nginx.conf"
  /usr/sbin/nginx -e "$work/nginx.log" -t -c "$work/nginx.conf" 2>"$work/refused" ||
    { fail "nginx refuses it, $2"; cat "$work/refused"; }
  /usr/sbin/nginx -e "$work/nginx.log" -c "$work/nginx.conf" &
}

serve_lighttpd() { # serve_lighttpd PORT VARIANT
  {
    echo "server.modules = ()"
    echo "server.document-root = \"$work/temporary\""
    echo "server.bind = \"127.0.0.1\""
    echo "server.port = $plain"
    echo "server.errorlog = \"$work/lighttpd.log\""
    echo 'mimetype.assign = ( ".html" => "text/html", ".css" => "text/css", ".js" => "text/javascript" )'
    adapt lighttpd.conf "$1" "$2"
  } >"$work/lighttpd.conf"
  /usr/sbin/lighttpd -tt -f "$work/lighttpd.conf" 2>"$work/refused" ||
    { fail "lighttpd refuses it, $2"; cat "$work/refused"; }
  /usr/sbin/lighttpd -D -f "$work/lighttpd.conf" 2>"$work/lighttpd.started" &
}

/usr/sbin/fcgiwrap -s "unix:$work/fcgi" &
declare -A headers=([nginx]=X-Accel-Redirect [lighttpd]=X-Sendfile)
for server in nginx lighttpd; do
  for sendfile in "" "${headers[$server]}"; do
    start_program "$sendfile"
    for variant in by_scgi by_cgi; do
      port=$(free_port)
      plain=$(free_port)
      "serve_$server" "$port" "$variant"
      check_site "$server $variant $sendfile" "$port"
      [ "$server" = nginx ] || expect "$server, without TLS" "301 https://127.0.0.1:$plain/photos/list/?a=b" \
        -o "$work/body" -w '%{http_code} %{redirect_url}' "http://127.0.0.1:$plain/photos/list/?a=b"
      stop $!
    done
    stop "$service"
  done
done
[ "$failures" -eq 0 ]
