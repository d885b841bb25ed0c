# The catalogue and the node reference of the documentation are those of the built classes.
expect 0 "$OV" describe --all
cmp -s out "$SOURCE/docs/catalogue.txt" || {
  diff "$SOURCE/docs/catalogue.txt" out >difference || true
  head -n 40 difference >&2
  fail "docs/catalogue.txt is out of date: ./ov describe --all > docs/catalogue.txt"
}
expect 0 "$OV" describe --all --markdown
cmp -s out "$SOURCE/docs/nodes.md" || fail "docs/nodes.md is out of date: ./ov describe --all --markdown > docs/nodes.md"
