# Improves what lowdown makes of a document: the columns of a table are as wide as their texts, and
# the last one takes the rest of 70 characters; the font for code is bold, because terminals have no
# other; there is no paragraph directly after a heading.

# The number of characters that are shown.
function shown(text) {
  gsub(/\\f[BRI]|\\f\(..|\\&/, "", text)
  gsub(/\\./, "x", text)
  return length(text)
}

function longest_word(column, row, words, count, longest) {
  for (row = 1; row <= rows; ++row)
    for (count = split(cell[row, column], words); count > 0; --count)
      if (shown(words[count]) > longest) longest = shown(words[count])
  return longest > 16 ? longest : 16
}

# Prints the rows cell[row, column] as a table.
function print_table(row, column, width, rest, layout, heads) {
  rest = 70
  for (column = 1; column < columns; ++column) {
    width = 0
    for (row = 1; row <= rows; ++row)
      if (shown(cell[row, column]) > width) width = shown(cell[row, column])
    if (width > 24) width = longest_word(column)
    layout = layout "lw(" width "n) "
    heads = heads "lbw(" width "n) "
    rest -= width + 3
  }
  print ".TS\ntab(|) allbox;"
  print heads "lbw(" rest - 2 "n)"
  print layout "lw(" rest - 2 "n)."
  for (row = 1; row <= rows; ++row)
    for (column = 1; column <= columns; ++column)
      print (column == 1 ? "T{" : "T}|T{") "\n" cell[row, column] \
            (column == columns ? "\nT}" : "")
  print ".TE\n.sp"
}

{ gsub(/\\fC/, "\\fB") }

/^\.TS$/ { in_table = 1; rows = columns = 0; next }
/^\.TE$/ { in_table = 0; print_table(); next }
in_table && /^T\{$/ { ++rows; column = 1; cell[rows, column] = ""; in_row = 1; next }
in_table && /^T\}\|T\{$/ { cell[rows, ++column] = ""; next }
in_table && /^T\}$/ { if (column > columns) columns = column; in_row = 0; next }
in_row {
  text = cell[rows, column]
  cell[rows, column] = text == "" ? $0 : text "\n" $0
  next
}
in_table { next }  # the layout

/^\.S[HS]$/ { macro = $0; getline; print macro " " $0; after_heading = 1; next }
after_heading && /^\.(PP|LP)$/ { next }
{ after_heading = 0; print }
