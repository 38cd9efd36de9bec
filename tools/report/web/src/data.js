// The report that the tool put into the page.

const data = JSON.parse(document.getElementById("data").textContent);

// Sums up what one snapshot holds: Map from the index of a site to [bytes, count].
export function holdings(snapshot) {
  return new Map(snapshot.sites.map(([index, bytes, count]) => [index ?? -1, [bytes, count]]));
}

const rest = { name: "(smaller sites)", kind: "", frames: [{ text: "(smaller sites)", module: "", file: "" }] };

export function siteAt(index) {
  return index < 0 ? rest : data.sites[index];
}

// The frames of a site for a graph, outermost first.
export function stackOf(site) {
  if (site.frames.length === 0) return [{ text: site.name, module: "", file: "" }];
  return [...site.frames].reverse();
}

export default data;
