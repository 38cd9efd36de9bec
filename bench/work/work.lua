-- SPDX-License-Identifier: Apache-2.0
-- Records from a table of comma separated lines: grouped, sorted, and written as text again.
local groups, order = {}, {}
for line in io.lines("table") do
  local id, first, second, amount = line:match("^(%d+),(%a+),(%a+),([%d.]+)$")
  local name = first .. "/" .. second
  local group = groups[name]
  if not group then
    group = { name = name, rows = {}, sum = 0 }
    groups[name], order[#order + 1] = group, group
  end
  group.rows[#group.rows + 1] = { id = tonumber(id), text = name .. ":" .. id, amount = tonumber(amount) }
  group.sum = group.sum + tonumber(amount)
end
table.sort(order, function(a, b) return a.name < b.name end)
for _, group in ipairs(order) do
  table.sort(group.rows, function(a, b) return a.amount < b.amount or a.amount == b.amount and a.id < b.id end)
  local out = {}
  for i, row in ipairs(group.rows) do out[i] = string.format("%s=%.1f", row.text, row.amount) end
  local text = table.concat(out, ";")
  print(group.name, #group.rows, string.format("%.2f", group.sum), #text, out[1])
end
