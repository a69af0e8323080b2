// A list of any length that only has elements for the rows in sight. The keyboard moves its selection.

const SPARE = 4; // rows above and below those in sight

export class VirtualList {
  // columns: [{name, title, text(item), class?(item)}]; select(item) is called for a new selection.
  constructor({ label, columns, rowHeight = 26, rowClass = () => "", select = () => {} }) {
    Object.assign(this, { columns, rowHeight, rowClass, onSelect: select });
    this.source = [];
    this.rows = [];
    this.selectedKey = null;
    this.follows = true;
    this.element = document.createElement("div");
    this.element.className = "vlist";
    this.element.tabIndex = 0;
    this.element.setAttribute("role", "listbox");
    this.element.setAttribute("aria-label", label);
    this.spacer = document.createElement("div");
    this.spacer.className = "spacer";
    this.spacer.setAttribute("role", "presentation");
    this.element.append(this.spacer);
    this.element.addEventListener("scroll", () => this.onScroll());
    this.element.addEventListener("keydown", (event) => this.onKey(event));
    this.element.addEventListener("click", (event) => this.onClick(event));
    new ResizeObserver(() => this.refresh()).observe(this.element);
  }

  show(source) {
    this.source = source;
    this.refresh();
  }

  // The source has changed; `removed` entries have left its begin. Draws once for each frame of the browser.
  refresh(removed = 0) {
    this.removed = (this.removed ?? 0) + removed;
    if (this.scheduled) return;
    this.scheduled = true;
    requestAnimationFrame(() => this.draw());
  }

  draw() {
    this.scheduled = false;
    const { element, rowHeight } = this;
    if (!element.clientHeight) return; // in a panel that is not shown
    const height = this.source.length * rowHeight;
    if (height !== this.height) this.spacer.style.height = `${this.height = height}px`;
    if (this.follows) element.scrollTop = height;
    else if (this.removed) element.scrollTop -= this.removed * rowHeight;
    this.removed = 0;
    this.drawRows();
  }

  drawRows() {
    const first = Math.max(Math.floor(this.element.scrollTop / this.rowHeight) - SPARE, 0);
    const wanted = Math.ceil(this.element.clientHeight / this.rowHeight) + 2 * SPARE;
    while (this.rows.length < wanted) this.rows.push(this.makeRow());
    this.active = null;
    for (let place = 0; place < this.rows.length; ++place) {
      // A row keeps its element while the list scrolls.
      const index = first + ((place - first % this.rows.length + this.rows.length) % this.rows.length);
      this.fill(this.rows[place], index < this.source.length ? index : -1);
    }
    if (this.active) this.element.setAttribute("aria-activedescendant", this.active);
    else this.element.removeAttribute("aria-activedescendant");
  }

  makeRow() {
    const element = document.createElement("div");
    element.className = "row";
    element.setAttribute("role", "option");
    element.id = `row-${VirtualList.ids = (VirtualList.ids ?? 0) + 1}`;
    const cells = this.columns.map((column) => {
      const cell = document.createElement("span");
      cell.className = `cell ${column.name}`;
      element.append(cell);
      return cell;
    });
    this.spacer.append(element);
    return { element, cells, item: undefined, index: undefined };
  }

  fill(row, index) {
    const item = index < 0 ? null : this.source.at(index);
    if (row.index !== index) {
      row.index = index;
      row.element.hidden = index < 0;
      row.element.style.transform = `translateY(${index * this.rowHeight}px)`;
    }
    if (!item) return void (row.item = null);
    const selected = item.key === this.selectedKey;
    if (selected) this.active = row.element.id;
    if (row.item === item && row.selected === selected) return;
    row.element.className = `row ${this.rowClass(item)}`;
    row.element.setAttribute("aria-selected", selected);
    row.selected = selected;
    if (row.item === item) return;
    row.item = item;
    this.columns.forEach((column, place) => { row.cells[place].textContent = column.text(item); });
  }

  isAtEnd() {
    return this.element.scrollTop + this.element.clientHeight >= this.height - this.rowHeight / 2;
  }

  onScroll() {
    const follows = this.isAtEnd();
    if (follows !== this.follows) {
      this.follows = follows;
      this.onFollow?.(follows);
    }
    this.refresh();
  }

  follow(follows) {
    this.follows = follows;
    this.onFollow?.(follows);
    this.refresh();
  }

  onClick(event) {
    const row = this.rows.find(({ element }) => element.contains(event.target));
    if (row?.item) this.select(row.item);
  }

  select(item) {
    this.selectedKey = item?.key ?? null;
    this.refresh();
    this.onSelect(item);
  }

  // Selects the entry and brings it into sight.
  reveal(item) {
    for (let index = 0; index < this.source.length; ++index)
      if (this.source.at(index).key === item.key) return this.moveTo(index);
  }

  onKey(event) {
    const page = Math.max(Math.floor(this.element.clientHeight / this.rowHeight) - 1, 1);
    const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity };
    const step = steps[event.key];
    if (!step || !this.source.length || event.ctrlKey || event.altKey) return;
    event.preventDefault();
    let place = this.rows.find((row) => row.item && row.item.key === this.selectedKey)?.index;
    if (place === undefined)
      for (place = this.source.length - 1; place > 0 && this.source.at(place).key !== this.selectedKey; --place);
    this.moveTo(Math.min(Math.max(place + step, 0), this.source.length - 1));
  }

  moveTo(index) {
    const top = index * this.rowHeight, { element } = this;
    if (top < element.scrollTop) element.scrollTop = top;
    else if (top + this.rowHeight > element.scrollTop + element.clientHeight)
      element.scrollTop = top + this.rowHeight - element.clientHeight;
    this.follows = this.isAtEnd();
    this.onFollow?.(this.follows);
    this.select(this.source.at(index));
  }
}
