// SPDX-License-Identifier: Apache-2.0
import { load } from "./data.js";
import { showFilters } from "./filters.js";
import { showFlame } from "./flame.js";
import { showGrowth } from "./growth.js";
import { showHead, showTotals } from "./head.js";
import { showLevels } from "./levels.js";
import { showSites } from "./sites.js";
import { showFaults, showMappings, showStatistics, showThreads } from "./tables.js";
import { showTimeline } from "./timeline.js";
import { listViews, showViews } from "./views.js";

async function show() {
  await load();
  listViews();
  showHead();
  showTotals();
  showFilters();
  showFlame();
  showSites();
  showLevels();
  showTimeline();
  showGrowth();
  showThreads();
  showMappings();
  showStatistics();
  showFaults();
  showViews();
  document.body.dataset.ready = "";
}

show().catch((error) => {
  document.getElementById("head").append(`The report cannot be shown: ${error.message}. It needs a browser of 2023 or later.`);
  throw error;
});
